// A process as a value with one owner.
#pragma once

#include <sys/types.h>

#include <optional>

#include "platform/export.h"
#include "platform/unique_fd.h"

namespace orvo {

// Stands for one process and for no other: it holds a pidfd, so a number that was given to another
// process meanwhile is never signalled or waited for. An owner of a child reaps it: when it goes
// while the child still runs, it kills the child with SIGKILL and reaps it. An owner of any other
// process (a detached one, one that was opened) lets it run. A copy in a forked process owns
// nothing.
class ORVO_API Process {
 public:
  Process() = default;  // no process
  Process(Process&& other) noexcept;
  Process& operator=(Process&& other) noexcept;
  Process(const Process&) = delete;
  Process& operator=(const Process&) = delete;
  ~Process();

  // Any process by its number. No process, with errno set, when there is none.
  static Process Open(pid_t pid);

  explicit operator bool() const { return descriptor_.IsOpen(); }
  pid_t Pid() const { return pid_; }  // -1 for no process
  // Becomes readable when the process has ended, reaped or not. Borrowed.
  const UniqueFd& Descriptor() const { return descriptor_; }

  // Sends a signal. False, with errno set, when it cannot be sent; ESRCH when the process has been
  // reaped.
  bool Signal(int number) const;

  // Waits until the process has ended or `milliseconds` (below 0: any time) have passed. True when
  // it has ended. No process has ended. Reaps nothing.
  bool HasEndedWithin(int milliseconds) const;

  // The same, and reaps a child that has ended. Its exit status, or 128 + the number of the signal
  // that ended it, as often as one asks; -1 where that cannot be told, because it is no child or
  // somebody else has reaped it. Nothing when it still runs.
  std::optional<int> WaitFor(int milliseconds);

  // Waits for the end however long it takes. The status as above.
  int Wait();

  // Sends `signal`, waits `milliseconds` for the end and kills what is still there then. The status
  // as above.
  int End(int signal, int milliseconds);

  // Gives the child up: its number, which the caller reaps from now on.
  pid_t Release();

 private:
  friend class LaunchFork;
  Process(pid_t pid, UniqueFd descriptor, pid_t parent);
  bool IsMyChild() const;
  void Reap();
  void Discard();

  pid_t pid_ = -1;
  UniqueFd descriptor_;
  pid_t parent_ = -1;  // the process that has to reap it; -1 for none
  std::optional<int> status_;
};

// Sends a signal to the process with this number. -1, with errno set, when it cannot be sent; a
// number below 1, which would name groups of processes, is refused with ESRCH.
ORVO_API int SendSignal(pid_t pid, int signal);

}  // namespace orvo
