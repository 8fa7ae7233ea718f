// A process as a value with one owner.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <optional>

#include "platform/export.h"
#include "platform/unique_fd.h"

namespace orvo {

// Represents exactly one process. It holds a pidfd, so it never signals or waits for another
// process that got the same number later. The destructor of a child's owner kills the child with
// SIGKILL if it still runs, and reaps it. The owner of any other process (a detached or an opened
// one) lets it run. A copy in a forked process owns nothing.
class ORVO_API Process {
 public:
  Process() = default;  // no process
  Process(Process&& other) noexcept;
  Process& operator=(Process&& other) noexcept;
  Process(const Process&) = delete;
  Process& operator=(const Process&) = delete;
  ~Process();

  // Opens any process by its number. Returns no process, with errno set, if there is none.
  static Process Open(pid_t pid);

  explicit operator bool() const { return descriptor_.IsOpen(); }
  pid_t Pid() const { return pid_; }  // -1 for no process
  // Becomes readable when the process has ended, reaped or not. This object keeps ownership.
  const UniqueFd& Descriptor() const { return descriptor_; }

  // Sends a signal. Returns false, with errno set, if it cannot be sent; errno is ESRCH if the
  // process has been reaped.
  bool Signal(int number) const;

  // Asks the process to end: sends the signal, and continues the process if it is stopped, so that
  // it receives the signal. Returns the result of sending, as Signal does.
  bool AskToEnd(int number) const;

  // Continues a child that was stopped since the last call. Does nothing to other processes.
  void ContinueIfStopped() const;

  // Waits until the process has ended or `milliseconds` have passed; a negative time means no
  // limit. Returns true if it has ended. An object without a process counts as ended. Reaps
  // nothing.
  bool HasEndedWithin(int milliseconds) const;

  // The same, and reaps a child that has ended. Returns its exit status, or 128 + the number of the
  // signal that ended it; later calls return the same. Returns -1 if the status is unknown, because
  // the process is not a child or was reaped elsewhere. Returns nothing if it still runs.
  std::optional<int> WaitFor(int milliseconds);

  // Waits for the end without a time limit. Returns the status as above.
  int Wait();

  // Asks the process to end with `signal`, waits up to `milliseconds` for the end, and then kills
  // the process if it still runs. Returns the status as above.
  int End(int signal, int milliseconds);

  // Gives up the child and returns its number. From now on the caller must reap it.
  pid_t Release();

 private:
  friend class LaunchFork;
  Process(pid_t pid, UniqueFd descriptor, pid_t parent);
  bool IsMyChild() const;
  void Reap();
  void Discard();

  pid_t pid_ = -1;
  UniqueFd descriptor_;
  pid_t parent_ = -1;  // the process that must reap it; -1 for none
  std::optional<int> status_;
};

// Sends a signal to the process with this number. Returns -1, with errno set, if it cannot be sent.
// Refuses a number below 1, which would name a process group, with ESRCH.
ORVO_API int SendSignal(pid_t pid, int signal);

// When the process with this number started, in clock ticks since the machine did. No two processes
// with the same number have the same start. Nothing if there is none.
ORVO_API std::optional<uint64_t> StartOf(pid_t pid);

// Asks the process with this number to end, also if it is stopped. The result is SendSignal's.
ORVO_API int AskToEnd(pid_t pid, int signal);

}  // namespace orvo
