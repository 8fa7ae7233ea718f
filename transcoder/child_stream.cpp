#include "transcoder/child_stream.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/signalfd.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <utility>

#include "platform/log.h"
#include "platform/pidfd.h"
#include "transcoder/launch.h"

namespace orvo::transcoder {
namespace {

constexpr int kPipeSize = 1 << 20;  // what FFmpeg may do ahead while this process has no turn

sigset_t StoppingSignals() {
  sigset_t set;
  sigemptyset(&set);
  sigaddset(&set, SIGINT);
  sigaddset(&set, SIGTERM);
  return set;
}

[[noreturn]] void BecomeChild(const std::vector<std::string>& command, int output, pid_t parent,
                              const sigset_t& mask) {
  prctl(PR_SET_PDEATHSIG, SIGKILL);
  if (getppid() != parent) {
    _exit(kExitFailure);
  }
  dup2(output, STDOUT_FILENO);
  sigprocmask(SIG_SETMASK, &mask, nullptr);
  _exit(Become(command));
}

}  // namespace

ChildStream::ChildStream(pid_t child, UniqueFd stream, UniqueFd signals, UniqueFd process)
    : child_(child),
      stream_(std::move(stream)),
      signals_(std::move(signals)),
      process_(std::move(process)) {}

std::optional<ChildStream> ChildStream::Start(const std::vector<std::string>& command) {
  const sigset_t stopping = StoppingSignals();
  sigset_t mask;
  sigprocmask(SIG_BLOCK, &stopping, &mask);
  UniqueFd signals(signalfd(-1, &stopping, SFD_CLOEXEC | SFD_NONBLOCK));
  int ends[2];
  if (!signals.IsOpen() || pipe2(ends, O_CLOEXEC) != 0) {
    ORVO_LOG("cannot start a run: %s", strerror(errno));
    return std::nullopt;
  }
  UniqueFd stream(ends[0]);
  UniqueFd output(ends[1]);
  fcntl(stream.Get(), F_SETPIPE_SZ, kPipeSize);
  const pid_t parent = getpid();
  const pid_t child = fork();
  if (child == 0) {
    BecomeChild(command, output.Get(), parent, mask);
  }
  if (child < 0) {
    ORVO_LOG("cannot fork: %s", strerror(errno));
    return std::nullopt;
  }
  return ChildStream(child, std::move(stream), std::move(signals), OpenProcess(child));
}

ChildStream::Wake ChildStream::Wait(int changes, bool holdBack) {
  std::array<pollfd, 3> waits = {{{signals_.Get(), POLLIN, 0},
                                  {changes, POLLIN, 0},
                                  {stream_.Get(), holdBack ? short{} : short{POLLIN}, 0}}};
  if (poll(waits.data(), waits.size(), -1) < 0) {
    return {};
  }
  if (waits[0].revents != 0) {
    PassOnSignal();
  }
  return {waits[2].revents != 0, waits[1].revents != 0};
}

void ChildStream::WaitForChange(int changes) {
  std::array<pollfd, 3> waits = {
      {{signals_.Get(), POLLIN, 0}, {changes, POLLIN, 0}, {process_.Get(), POLLIN, 0}}};
  if (poll(waits.data(), waits.size(), -1) < 0) {
    return;
  }
  if (waits[0].revents != 0) {
    PassOnSignal();
  }
  if (waits[2].revents != 0) {
    process_.Reset();  // told once; the rest of its output can still be wanted
    stopped_ |= HasFailed();
  }
}

bool ChildStream::HasFailed() const {
  siginfo_t info{};
  return waitid(P_PID, static_cast<id_t>(child_), &info, WEXITED | WNOHANG | WNOWAIT) == 0 &&
         info.si_pid == child_ && (info.si_code != CLD_EXITED || info.si_status != 0);
}

void ChildStream::PassOnSignal() {
  signalfd_siginfo info{};
  if (read(signals_.Get(), &info, sizeof info) == sizeof info) {
    Stop(static_cast<int>(info.ssi_signo));
  }
}

void ChildStream::Stop(int signalNumber) {
  stopped_ = true;
  kill(child_, signalNumber);
}

ssize_t ChildStream::Read(void* buffer, size_t size) {
  const ssize_t count = read(stream_.Get(), buffer, size);
  if (count >= 0) {
    return count;
  }
  return errno == EINTR || errno == EAGAIN ? -1 : 0;
}

int ChildStream::ExitCode() {
  int status = 0;
  while (waitpid(child_, &status, 0) < 0) {
    if (errno != EINTR) {
      return kExitFailure;
    }
  }
  return WIFEXITED(status) ? WEXITSTATUS(status) : kExitSignal + WTERMSIG(status);
}

}  // namespace orvo::transcoder
