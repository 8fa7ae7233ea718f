// Tools for tests with several processes. Every wait is for an event: a process ends or stops, or a
// pipe closes.
#pragma once

#include <sys/types.h>

#include <functional>
#include <string>

namespace test {

// Runs `body` in a forked child. Fails the calling test if the body fails, dies or leaves a child
// process behind. Values that exist once per process (the platform) are new in the child.
void InChild(const std::function<void()>& body);

// Reaps children, adopted ones included, until none is left. They must be about to end.
void ReapAll();

// True if this process has no child, dead or alive.
bool HasNoChild();

// A forked process. The destructor kills and reaps it.
class Child {
 public:
  explicit Child(const std::function<void()>& body);
  Child(const Child&) = delete;
  Child& operator=(const Child&) = delete;
  ~Child();

  pid_t Pid() const { return pid_; }

  // Waits until the child calls StopHere; false if it ended instead.
  bool WaitUntilStopped();
  void Continue() const;
  void Kill(int signal) const;
  // Waits for the end and returns the exit status, or 128 + signal.
  int Wait();
  // Waits for the end, but leaves the zombie for Wait.
  void WaitUntilZombie() const;

 private:
  pid_t pid_ = -1;
  bool reaped_ = false;
};

// In a child: stops the process until the parent continues it.
void StopHere();

// A process that does nothing until it is killed.
[[noreturn]] void SleepUntilKilled();

// A pipe that closes its ends in the destructor. End of file on the read end means that no writer
// is left.
class Pipe {
 public:
  Pipe();
  Pipe(const Pipe&) = delete;
  Pipe& operator=(const Pipe&) = delete;
  ~Pipe();

  int ReadEnd() const { return ends_[0]; }
  int WriteEnd() const { return ends_[1]; }
  void CloseRead();
  void CloseWrite();
  void Write(const std::string& text) const;
  // Closes this process's write end, then reads to the end of the pipe.
  std::string ReadToEnd();
  // Reads exactly `length` bytes, or fewer at the end.
  std::string Read(size_t length) const;

 private:
  int ends_[2] = {-1, -1};
};

// Reads a descriptor to its end.
std::string ReadToEnd(int fd);

// Seconds on the monotonic clock.
double Now();

}  // namespace test
