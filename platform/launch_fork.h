// The forks of a launch and the channel through which the child reports.
#pragma once

#include <signal.h>

#include <mutex>

#include "platform/process.h"
#include "platform/unique_fd.h"

namespace orvo {

// Construction forks: both sides go on with an object of their own. All signals are blocked until
// the caller's side finishes and until the child's side lets them through. Only one launch is under
// way at a time.
class LaunchFork {
 public:
  // `detached`: the child is a grandchild, whose number the process between holds until the caller
  // has a pidfd for it.
  explicit LaunchFork(bool detached);
  LaunchFork(const LaunchFork&) = delete;
  LaunchFork& operator=(const LaunchFork&) = delete;

  bool IsChild() const { return isChild_; }

  // In the child: who launched it.
  pid_t Caller() const { return caller_; }
  // What is blocked in the caller is blocked here, too, and nothing else.
  void TakeCallersMask();
  // It goes on for itself.
  void Succeed();
  [[noreturn]] void Fail(int error);
  // Succeeds with the exec. Async-signal-safe: moves the channel out of the way of the numbers
  // below `floor`. False, with errno set, when it cannot.
  bool MoveReport(int floor);

  // In the caller: waits for the child's report. No process, with errno set, when it failed.
  Process Finish();

 private:
  struct Report {
    pid_t pid = -1;  // from the process between
    int error = 0;
  };

  bool OpenChannels(bool detached);
  void BeginChild(bool detached);
  void ForkAgain();
  void Send(const Report& report) const;
  Report Receive() const;
  Process Adopt(const Report& report);

  pid_t caller_;
  std::unique_lock<std::mutex> lock_;
  sigset_t previousMask_{};
  UniqueFd reportRead_;
  UniqueFd reportWrite_;
  UniqueFd releaseRead_;  // ends when the process between may go
  UniqueFd releaseWrite_;
  pid_t first_ = -1;  // the child that this process has forked itself
  bool detached_;
  bool isChild_ = false;
  int error_ = 0;
};

}  // namespace orvo
