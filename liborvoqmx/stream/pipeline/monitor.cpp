#include "stream/pipeline/monitor.h"

#include <poll.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <exception>

#include "platform/io.h"
#include "platform/pidfd.h"
#include "platform/plat.h"
#include "platform/unique_fd.h"
#include "state/stream_watch.h"

namespace LibOrvoQMX {
namespace {

constexpr int kIdleCheckMilliseconds = 2000;
// A monitor waits up to five seconds for the one before it.
constexpr int kRecordMilliseconds = 10000;

// What a request process may have changed and the processes of a stream must not inherit.
void SetStopSignals(void (*handler)(int)) {
  struct sigaction action {};
  action.sa_handler = handler;
  sigset_t stop;
  sigemptyset(&stop);
  for (const int number : {SIGINT, SIGTERM}) {
    sigaction(number, &action, nullptr);
    sigaddset(&stop, number);
  }
  sigprocmask(SIG_UNBLOCK, &stop, nullptr);
}

pid_t Reap(pid_t child, int options) {
  pid_t reaped = 0;
  do {
    reaped = waitpid(child, nullptr, options);
  } while (reaped < 0 && errno == EINTR);
  return reaped;
}

// `recorded` is closed once `record` came back.
void RunMonitor(const std::function<bool()>& record, const std::function<void()>& watch,
                orvo::UniqueFd& recorded) {
  try {
    const bool isRecorded = record();
    recorded.Reset();
    if (isRecorded) {
      watch();
    }
  } catch (const std::exception&) {
    // There is nobody to tell.
  }
}

}  // namespace

bool StartMonitor(void (*handler)(int), const std::function<bool()>& record,
                  const std::function<void()>& watch) {
  orvo::UniqueFd readEnd;
  orvo::UniqueFd writeEnd;
  if (!orvo::OpenPipe(readEnd, writeEnd)) {
    return false;
  }
  const int forked = PlatProcForkChildNoWait();
  if (forked == 0) {
    readEnd.Reset();
    signal(SIGCHLD, SIG_DFL);
    SetStopSignals(handler);
    // The client of this request reads to the end of the streams, and this process stays.
    orvo::DetachStandardStreams();
    RunMonitor(record, watch, writeEnd);
    _exit(0);
  }
  writeEnd.Reset();
  if (forked < 0) {
    return false;
  }
  pollfd recorded{readEnd.Get(), POLLIN, 0};
  poll(&recorded, 1, kRecordMilliseconds);
  return true;
}

pid_t ForkUnderMonitor() {
  const pid_t monitor = getpid();
  const pid_t child = fork();
  if (child == 0) {
    if (!orvo::DieWithParent(monitor)) {
      _exit(1);
    }
    SetStopSignals(SIG_DFL);
    // A transcoder whose reader has gone ends by it.
    signal(SIGPIPE, SIG_DFL);
  }
  return child;
}

bool AwaitChild(pid_t child, const volatile sig_atomic_t& stop,
                const std::function<bool()>& isAbandoned, pid_t* companion) {
  const orvo::UniqueFd process = orvo::OpenProcess(child);
  const SignalGate gate;
  for (;;) {
    const pid_t ended = waitpid(-1, nullptr, WNOHANG);
    if (ended < 0) {
      return false;
    }
    if (ended == child) {
      return true;
    }
    if (companion != nullptr && ended > 0 && ended == *companion) {
      *companion = 0;  // the number may be another's soon
      continue;
    }
    if ((isAbandoned && isAbandoned()) || stop != 0) {
      return false;
    }
    gate.Wait(process, kIdleCheckMilliseconds);
  }
}

bool ReapChild(pid_t child) {
  return Reap(child, 0) == child;
}

void EndChild(pid_t child, int graceMilliseconds, const std::function<void()>& onKill) {
  orvo::WaitForExit(child, graceMilliseconds);
  if (Reap(child, WNOHANG) == child) {
    return;
  }
  if (onKill) {
    onKill();
  }
  kill(child, SIGKILL);
  Reap(child, 0);
}

}  // namespace LibOrvoQMX
