#include "platform/process.h"

#include <poll.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <climits>
#include <csignal>
#include <fstream>
#include <sstream>
#include <string>
#include <utility>

#include "platform/awaited_children.h"
#include "platform/io.h"
#include "platform/pidfd.h"

// This C header lacks its own extern "C".
extern "C" {
#include <sys/pidfd.h>
}

namespace orvo {
namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

int StatusOf(const siginfo_t& info) {
  return info.si_code == CLD_EXITED ? info.si_status : 128 + info.si_status;
}

// The time until the deadline, in milliseconds for poll.
int Left(Clock::time_point deadline) {
  const auto left = std::chrono::ceil<milliseconds>(deadline - Clock::now()).count();
  return static_cast<int>(std::clamp<decltype(left)>(left, 0, INT_MAX));
}

}  // namespace

UniqueFd OpenProcess(pid_t pid) {
  return UniqueFd(pidfd_open(pid, 0));
}

int SendSignal(pid_t pid, int signal) {
  if (pid < 1) {
    errno = ESRCH;
    return -1;
  }
  return kill(pid, signal);
}

// The command's name stands in brackets and may contain anything.
std::optional<uint64_t> StartOf(pid_t pid) {
  constexpr int kFieldsBetween = 19;  // the name is the second field, the start the 22nd
  std::ifstream file("/proc/" + std::to_string(pid) + "/stat");
  std::string text;
  const size_t name = pid > 0 && ReadAll(file, text) ? text.rfind(')') : std::string::npos;
  if (name == std::string::npos) {
    return std::nullopt;
  }
  std::istringstream fields(text.substr(name + 1));
  std::string skipped;
  for (int i = 0; i < kFieldsBetween; ++i) {
    fields >> skipped;
  }
  uint64_t start = 0;
  return fields >> start ? std::optional(start) : std::nullopt;
}

// One descriptor receives both signals, so the second one cannot reach another process.
int AskToEnd(pid_t pid, int signal) {
  const Process process = pid < 1 ? Process() : Process::Open(pid);
  if (!process) {
    return SendSignal(pid, signal);
  }
  return process.AskToEnd(signal) ? 0 : -1;
}

Process::Process(pid_t pid, UniqueFd descriptor, pid_t parent)
    : pid_(pid), descriptor_(std::move(descriptor)), parent_(parent) {}

Process::Process(Process&& other) noexcept
    : pid_(std::exchange(other.pid_, -1)),
      descriptor_(std::move(other.descriptor_)),
      parent_(std::exchange(other.parent_, -1)),
      status_(std::exchange(other.status_, std::nullopt)) {}

Process& Process::operator=(Process&& other) noexcept {
  if (this != &other) {
    Discard();
    pid_ = std::exchange(other.pid_, -1);
    descriptor_ = std::move(other.descriptor_);
    parent_ = std::exchange(other.parent_, -1);
    status_ = std::exchange(other.status_, std::nullopt);
  }
  return *this;
}

Process::~Process() {
  Discard();
}

Process Process::Open(pid_t pid) {
  UniqueFd descriptor = OpenProcess(pid);
  return descriptor.IsOpen() ? Process(pid, std::move(descriptor), -1) : Process();
}

bool Process::Signal(int number) const {
  return pidfd_send_signal(descriptor_.Get(), number, nullptr, 0) == 0;
}

bool Process::AskToEnd(int number) const {
  const bool isSent = Signal(number);
  const int reason = errno;
  Signal(SIGCONT);
  errno = reason;
  return isSent;
}

void Process::ContinueIfStopped() const {
  siginfo_t info{};
  const auto id = static_cast<id_t>(descriptor_.Get());
  if (IsMyChild() && waitid(P_PIDFD, id, &info, WSTOPPED | WNOHANG) == 0 && info.si_pid == pid_) {
    Signal(SIGCONT);
  }
}

bool Process::HasEndedWithin(int milliseconds) const {
  if (!descriptor_.IsOpen()) {
    return true;
  }
  const auto deadline = Clock::now() + std::chrono::milliseconds(milliseconds);
  for (;;) {
    pollfd wait{descriptor_.Get(), POLLIN, 0};
    const int ready = poll(&wait, 1, milliseconds < 0 ? -1 : Left(deadline));
    if (ready >= 0 || errno != EINTR) {
      return ready > 0;
    }
  }
}

std::optional<int> Process::WaitFor(int milliseconds) {
  if (!status_ && HasEndedWithin(milliseconds)) {
    Reap();
  }
  return status_;
}

int Process::Wait() {
  return WaitFor(-1).value_or(-1);
}

int Process::End(int signal, int milliseconds) {
  AskToEnd(signal);
  if (!HasEndedWithin(milliseconds)) {
    Signal(SIGKILL);
  }
  return Wait();
}

pid_t Process::Release() {
  if (IsMyChild()) {
    const std::unique_lock<std::mutex> lock(LaunchLock());
    LetGoOfChildren(lock);
  }
  parent_ = -1;
  descriptor_.Reset();
  return std::exchange(pid_, -1);
}

bool Process::IsMyChild() const {
  return parent_ == getpid();
}

// Reaps only a process that has ended, because it does not wait.
void Process::Reap() {
  status_ = -1;
  if (!IsMyChild()) {
    return;
  }
  siginfo_t info{};
  if (waitid(P_PIDFD, static_cast<id_t>(descriptor_.Get()), &info, WEXITED) == 0) {
    status_ = StatusOf(info);
  }
  parent_ = -1;
  const std::unique_lock<std::mutex> lock(LaunchLock());
  LetGoOfChildren(lock);
}

void Process::Discard() {
  if (IsMyChild()) {
    Signal(SIGKILL);
    Wait();
  }
}

}  // namespace orvo
