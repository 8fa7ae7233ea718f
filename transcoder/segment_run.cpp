#include "transcoder/segment_run.h"

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

#include "platform/log.h"
#include "platform/unique_fd.h"
#include "transcoder/demand.h"
#include "transcoder/first_key.h"
#include "transcoder/launch.h"
#include "transcoder/segment_files.h"

namespace orvo::transcoder {
namespace {

constexpr int kExitFailure = 1;
constexpr int kPipeSize = 1 << 20;  // what FFmpeg may do ahead while this process has no turn

sigset_t StoppingSignals() {
  sigset_t set;
  sigemptyset(&set);
  sigaddset(&set, SIGINT);
  sigaddset(&set, SIGTERM);
  return set;
}

// --- FFmpeg as a child ---

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

int ExitCode(pid_t pid) {
  int status = 0;
  while (waitpid(pid, &status, 0) < 0) {
    if (errno != EINTR) {
      return kExitFailure;
    }
  }
  return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

// --- From the pipe to the segments ---

std::string FolderOf(const std::string& pattern) {
  const size_t slash = pattern.rfind('/');
  return slash == std::string::npos ? "." : pattern.substr(0, slash + 1);
}

class Run {
 public:
  Run(const SegmentPlan& plan, UniqueFd stream, UniqueFd signals, pid_t child)
      : folder_(FolderOf(plan.pattern)),
        firstNumber_(plan.firstNumber),
        files_(plan.pattern),
        cutter_(plan, files_),
        demand_(folder_, plan.firstNumber),
        stream_(std::move(stream)),
        signals_(std::move(signals)),
        child_(child) {}

  int Finish() {
    while (Step()) {
    }
    const int code = ExitCode(child_);
    if (stopped_ || code >= 128) {
      files_.Discard();
    } else if (code == 0 && !cutter_.HasBegun()) {
      files_.Begin(firstNumber_);
    }
    files_.Finish();
    return files_.HasFailed() ? kExitFailure : code;
  }

 private:
  bool IsPaused() const { return !stopped_ && !demand_.Wants(cutter_.Number()); }

  // Waits for something to do and does it. A paused run leaves the stream in the pipe, whose other
  // end then waits; that it is closed is told all the same. False at the stream's end.
  bool Step() {
    std::array<pollfd, 3> waits = {{{signals_.Get(), POLLIN, 0},
                                    {demand_.Descriptor(), POLLIN, 0},
                                    {stream_.Get(), IsPaused() ? short{} : short{POLLIN}, 0}}};
    if (poll(waits.data(), waits.size(), -1) < 0) {
      return errno == EINTR;
    }
    if (waits[0].revents != 0) {
      PassOnSignal();
    }
    if (waits[1].revents != 0) {
      demand_.Refresh();
    }
    return waits[2].revents == 0 || Read();
  }

  void PassOnSignal() {
    signalfd_siginfo info{};
    if (read(signals_.Get(), &info, sizeof info) == sizeof info) {
      Stop(static_cast<int>(info.ssi_signo));
    }
  }

  // What FFmpeg still writes is read, because it would wait for that, and forgotten.
  void Stop(int signalNumber) {
    stopped_ = true;
    files_.Discard();
    kill(child_, signalNumber);
  }

  bool Read() {
    const ssize_t count = read(stream_.Get(), chunk_.data(), chunk_.size());
    if (count <= 0) {
      return count < 0 && (errno == EINTR || errno == EAGAIN);
    }
    if (!stopped_) {
      Cut(static_cast<size_t>(count));
      Remember();
    }
    if (files_.HasFailed() && !stopped_) {
      Stop(SIGKILL);
    }
    return true;
  }

  void Remember() {
    const auto firstKey = remembered_ ? std::nullopt : cutter_.FirstKey();
    if (firstKey) {
      remembered_ = true;
      RememberFirstKey(folder_, *firstKey);
    }
  }

  void Cut(size_t count) {
    for (size_t taken = 0; taken < count;) {
      const size_t part = std::min(count - taken, kPacketSize - filled_);
      memcpy(packet_.data() + filled_, chunk_.data() + taken, part);
      taken += part;
      filled_ += part;
      if (filled_ == kPacketSize) {
        filled_ = 0;
        cutter_.Take(packet_);
      }
    }
  }

  std::string folder_;
  int firstNumber_;
  SegmentFiles files_;
  SegmentCutter cutter_;
  Demand demand_;
  UniqueFd stream_;
  UniqueFd signals_;
  pid_t child_;
  bool stopped_ = false;
  bool remembered_ = false;
  Packet packet_{};
  size_t filled_ = 0;
  std::array<unsigned char, 65536> chunk_;
};

}  // namespace

int RunSegments(const std::vector<std::string>& command, const SegmentPlan& plan) {
  const sigset_t stopping = StoppingSignals();
  sigset_t mask;
  sigprocmask(SIG_BLOCK, &stopping, &mask);
  UniqueFd signals(signalfd(-1, &stopping, SFD_CLOEXEC | SFD_NONBLOCK));
  int ends[2];
  if (!signals.IsOpen() || pipe2(ends, O_CLOEXEC) != 0) {
    ORVO_LOG("cannot start a run: %s", strerror(errno));
    return kExitFailure;
  }
  UniqueFd stream(ends[0]);
  UniqueFd output(ends[1]);
  fcntl(stream.Get(), F_SETPIPE_SZ, kPipeSize);
  const pid_t parent = getpid();
  const pid_t child = fork();
  if (child == 0) {
    BecomeChild(command, output.Get(), parent, mask);
  }
  output.Reset();
  if (child < 0) {
    ORVO_LOG("cannot fork: %s", strerror(errno));
    return kExitFailure;
  }
  SegmentPlan known = plan;
  known.firstKey = plan.startsAtOnce ? std::nullopt : RecallFirstKey(FolderOf(plan.pattern));
  return Run(known, std::move(stream), std::move(signals), child).Finish();
}

}  // namespace orvo::transcoder
