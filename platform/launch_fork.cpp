#include "platform/launch_fork.h"

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <utility>

#include "platform/awaited_children.h"
#include "platform/io.h"
#include "platform/pidfd.h"

namespace orvo {
namespace {

constexpr int kNeverBegan = 127;

// For a child that this process has forked and nobody else knows of.
void Reap(pid_t child) {
  while (waitpid(child, nullptr, 0) < 0 && errno == EINTR) {
  }
}

}  // namespace

LaunchFork::LaunchFork(bool detached)
    : caller_(getpid()), lock_(LaunchLock()), detached_(detached) {
  HoldChildren(lock_);
  sigset_t all;
  sigfillset(&all);
  pthread_sigmask(SIG_SETMASK, &all, &previousMask_);
  if (!OpenChannels(detached)) {
    error_ = errno;
    return;
  }
  first_ = fork();
  if (first_ < 0) {
    error_ = errno;
  } else if (first_ > 0) {
    reportWrite_.Reset();
    releaseRead_.Reset();
  } else {
    BeginChild(detached);
  }
}

bool LaunchFork::OpenChannels(bool detached) {
  return OpenPipe(reportRead_, reportWrite_) &&
         (!detached || OpenPipe(releaseRead_, releaseWrite_));
}

void LaunchFork::BeginChild(bool detached) {
  isChild_ = true;
  reportRead_.Reset();
  releaseWrite_.Reset();
  if (detached) {
    ForkAgain();
  }
  LetGoOfParentsChildren(lock_);
}

// Only the grandchild comes back.
void LaunchFork::ForkAgain() {
  const pid_t child = fork();
  if (child == 0) {
    releaseRead_.Reset();
    return;
  }
  Send({child, child < 0 ? errno : 0});
  reportWrite_.Reset();
  char none = 0;
  while (read(releaseRead_.Get(), &none, 1) < 0 && errno == EINTR) {
  }
  _exit(0);
}

void LaunchFork::TakeCallersMask() {
  pthread_sigmask(SIG_SETMASK, &previousMask_, nullptr);
}

void LaunchFork::Succeed() {
  reportWrite_.Reset();
  lock_.unlock();
}

void LaunchFork::Fail(int error) {
  Send({-1, error});
  _exit(kNeverBegan);
}

bool LaunchFork::MoveReport(int floor) {
  reportWrite_.Reset(fcntl(reportWrite_.Get(), F_DUPFD_CLOEXEC, floor));
  return reportWrite_.IsOpen();
}

// A few bytes into an empty pipe are written whole.
void LaunchFork::Send(const Report& report) const {
  (void)!write(reportWrite_.Get(), &report, sizeof report);
}

// Both reporters have closed the channel when this comes back. No signal interrupts it.
LaunchFork::Report LaunchFork::Receive() const {
  Report whole{detached_ ? -1 : first_, 0};
  Report part;
  while (read(reportRead_.Get(), &part, sizeof part) == sizeof part) {
    whole.pid = part.pid > 0 ? part.pid : whole.pid;
    whole.error = part.error != 0 ? part.error : whole.error;
  }
  return whole;
}

Process LaunchFork::Finish() {
  Process process;
  if (first_ > 0) {
    process = Adopt(Receive());
  }
  if (!process || detached_) {
    LetGoOfChildren(lock_);
  }
  lock_.unlock();
  pthread_sigmask(SIG_SETMASK, &previousMask_, nullptr);
  errno = error_;
  return process;
}

// The number is the child's still: nobody has reaped it.
Process LaunchFork::Adopt(const Report& report) {
  UniqueFd descriptor = report.error == 0 ? OpenProcess(report.pid) : UniqueFd();
  error_ = descriptor.IsOpen() ? 0 : (report.error != 0 ? report.error : errno);
  releaseWrite_.Reset();
  if (!descriptor.IsOpen() && !detached_) {
    kill(first_, SIGKILL);
  }
  if (!descriptor.IsOpen() || detached_) {
    Reap(first_);
  }
  return descriptor.IsOpen() ? Process(report.pid, std::move(descriptor), detached_ ? -1 : caller_)
                             : Process();
}

}  // namespace orvo
