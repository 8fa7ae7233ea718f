#include "transcoder/segment_run.h"

#include <array>
#include <csignal>
#include <cstring>

#include "contract/blocks.h"
#include "platform/log.h"
#include "transcoder/child_stream.h"
#include "transcoder/demand.h"
#include "transcoder/first_key.h"
#include "transcoder/launch.h"
#include "transcoder/segment_files.h"

namespace orvo::transcoder {
namespace {

constexpr int kEngineSilence = 8000;  // milliseconds

std::string FolderOf(const std::string& pattern) {
  const size_t slash = pattern.rfind('/');
  return slash == std::string::npos ? "." : pattern.substr(0, slash + 1);
}

class Run {
 public:
  Run(const SegmentPlan& plan, ChildStream child)
      : folder_(FolderOf(plan.pattern)),
        firstNumber_(plan.firstNumber),
        files_(plan.pattern, LastOfRun(plan.firstNumber)),
        cutter_(plan, files_),
        demand_(folder_, plan.firstNumber),
        child_(std::move(child)) {}

  EngineRunEnd FinishEngine() {
    child_.LimitSilence(kEngineSilence);
    while (Step()) {
    }
    const int code = child_.ExitCode();
    if (code == 0 || child_.IsStopped() || files_.HasFailed()) {
      return {Conclude(code)};
    }
    files_.Discard();
    return {code, true, std::max(firstNumber_, cutter_.Number())};
  }

  int Finish() {
    while (Step()) {
    }
    return Conclude(child_.ExitCode());
  }

 private:
  int Conclude(int ended) {
    if (files_.IsFull()) {
      return 0;  // the program was killed behind its last segment
    }
    const int code = ended == kExitNeedsFFmpeg && child_.IsStopped() ? kExitFailure : ended;
    if (child_.IsStopped() || code >= kExitSignal || code == kExitNeedsFFmpeg) {
      files_.Discard();
    } else if (code == 0 && !cutter_.HasBegun()) {
      files_.Begin(firstNumber_);
    }
    files_.Finish();
    return files_.HasFailed() ? kExitFailure : code;
  }

  bool IsPaused() const { return !child_.IsStopped() && !demand_.Wants(cutter_.Number()); }

  // Waits for something to do and does it. False at the stream's end.
  bool Step() {
    const ChildStream::Wake wake = child_.Wait(demand_.Descriptor(), IsPaused());
    if (child_.IsStopped()) {
      files_.Discard();
    }
    if (wake.hasChange) {
      demand_.Refresh();
    }
    return !wake.hasOutput || Read();
  }

  // What FFmpeg still writes after it was told to stop is read, because it would wait for that, and
  // forgotten.
  bool Read() {
    const ssize_t count = child_.Read(chunk_.data(), chunk_.size());
    if (count <= 0) {
      return count < 0;
    }
    if (!child_.IsStopped()) {
      Cut(static_cast<size_t>(count));
      Remember();
    }
    if ((files_.HasFailed() || files_.IsFull()) && !child_.IsStopped()) {
      child_.Stop(SIGKILL);
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
  ChildStream child_;
  bool remembered_ = false;
  Packet packet_{};
  size_t filled_ = 0;
  std::array<unsigned char, 65536> chunk_;
};

SegmentPlan Prepared(SegmentPlan plan) {
  plan.firstKey = plan.startsAtOnce ? std::nullopt : RecallFirstKey(FolderOf(plan.pattern));
  return plan;
}

int Cut(std::optional<ChildStream> child, const SegmentPlan& plan) {
  return child ? Run(Prepared(plan), std::move(*child)).Finish() : kExitNotFound;
}

}  // namespace

int RunSegments(const std::vector<std::string>& command, const SegmentPlan& plan) {
  return Cut(ChildStream::Start(command), plan);
}

EngineRunEnd RunEngineSegments(const std::vector<std::string>& command, const SegmentPlan& plan) {
  auto child = ChildStream::Start(command);
  return child ? Run(Prepared(plan), std::move(*child)).FinishEngine()
               : EngineRunEnd{kExitNotFound};
}

int RunSegments(const FilmCopy& copy, int progress, const std::vector<std::string>& command,
                const SegmentPlan& plan) {
  auto child = ChildStream::Start(copy, progress);
  const int code = child ? Cut(std::move(child), plan) : kExitNeedsFFmpeg;
  if (code != kExitNeedsFFmpeg) {
    return code;
  }
  Log(LOG_NOTICE, __FILE__, __LINE__, "%s needs FFmpeg to be copied", copy.film.c_str());
  PrepareProcess();  // the next child gets its signals as the first one did
  return RunSegments(command, plan);
}

}  // namespace orvo::transcoder
