// Tests that take several processes. Everything waits for an event: the end of a process, its
// stopping, the end of a pipe.
#pragma once

#include <sys/types.h>

#include <functional>
#include <string>

namespace test {

// Runs `body` in a forked child and fails the calling test when the body fails, dies or leaves a
// child of its own behind. What only lives once per process (the platform) is new in it.
void InChild(const std::function<void()>& body);

// Reaps children, adopted ones included, until there are none. They must be about to end.
void ReapAll();

// True when this process has no child left, dead or alive.
bool HasNoChild();

// A forked process. Killed and reaped with its owner.
class Child {
 public:
  explicit Child(const std::function<void()>& body);
  Child(const Child&) = delete;
  Child& operator=(const Child&) = delete;
  ~Child();

  pid_t Pid() const { return pid_; }

  // Waits for the child to call StopHere; false when it ended instead.
  bool WaitUntilStopped();
  void Continue() const;
  void Kill(int signal) const;
  // Waits for the end: the exit status, or 128 + signal.
  int Wait();
  // Waits for the end but leaves the zombie for Wait.
  void WaitUntilZombie() const;

 private:
  pid_t pid_ = -1;
  bool reaped_ = false;
};

// In a child: stops until the parent continues it.
void StopHere();

// A process that does nothing until it is killed.
[[noreturn]] void SleepUntilKilled();

// A pipe whose ends close with it. The end of the reading side tells that no writer lives any more.
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
  // Everything up to the end of the pipe. Closes this process's write end first.
  std::string ReadToEnd();
  // Exactly `length` bytes, or less at the end.
  std::string Read(size_t length) const;

 private:
  int ends_[2] = {-1, -1};
};

// Reads a descriptor to its end.
std::string ReadToEnd(int fd);

// Seconds on the monotonic clock.
double Now();

}  // namespace test
