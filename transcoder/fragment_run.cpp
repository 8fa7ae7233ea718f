#include "transcoder/fragment_run.h"

#include <algorithm>
#include <csignal>
#include <utility>

#include "transcoder/child_stream.h"
#include "transcoder/demand.h"
#include "transcoder/film_promise.h"
#include "transcoder/fragment_files.h"
#include "transcoder/fragment_format.h"
#include "transcoder/launch.h"

namespace orvo::transcoder {
namespace {

constexpr int kAgain = -1;
constexpr int kNothing = -1;

std::string ParentOf(const std::string& folder) {
  const size_t slash = folder.rfind('/');
  return slash == std::string::npos ? "." : folder.substr(0, slash + 1);
}

class Run : private FragmentSink {
 public:
  Run(const FragmentPlan& plan, ChildStream child)
      : child_(std::move(child)),
        files_(plan),
        demand_(ParentOf(plan.folder), plan.firstNumber),
        cutter_(plan, *this),
        format_([this](unsigned char* buffer, int size) { return Read(buffer, size); }) {}

  int Finish() {
    if (files_.Prepare() && format_.Open()) {
      cutter_.SetHasSound(format_.HasSound());
      Cut();
    }
    const int code = End();
    if (code == 0 && !child_.IsStopped()) {
      cutter_.Finish();
    }
    return hasFailed_ ? kExitFailure : code;
  }

 private:
  void Cut() {
    while (!child_.IsStopped() && !cutter_.IsSated()) {
      const auto frame = format_.Next();
      if (!frame) {
        return;
      }
      cutter_.Take(frame->track, frame->sample);
    }
  }

  // What FFmpeg still writes is wanted no more; how it takes that is no matter.
  int End() {
    const bool isEnough = cutter_.IsSated();
    child_.Close();
    const int code = child_.ExitCode();
    if (child_.IsStopped()) {
      return std::max(code, kExitFailure);
    }
    return isEnough ? 0 : code;
  }

  // For libavformat: below 0 ends its reading.
  int Read(unsigned char* buffer, int size) {
    ssize_t count = kAgain;
    while (count == kAgain && !child_.IsStopped()) {
      if (child_.Wait(kNothing, false).hasOutput) {
        count = child_.Read(buffer, static_cast<size_t>(size));
      }
    }
    return child_.IsStopped() ? kAgain : static_cast<int>(count);
  }

  // Waits until somebody wants this fragment: the one before may be ahead as far as is allowed.
  void Write(Track track, int number, const std::vector<Sample>& samples) override {
    while (!child_.IsStopped() && !demand_.Wants(number - 1)) {
      child_.WaitForChange(demand_.Descriptor());
      demand_.Refresh();
    }
    if (child_.IsStopped()) {
      return;
    }
    const std::string box = format_.Box(track, number, samples);
    if (box.empty() || !files_.Write(track, number, box)) {
      hasFailed_ = true;
      child_.Stop(SIGKILL);
    }
  }

  ChildStream child_;
  FragmentFiles files_;
  Demand demand_;
  FragmentCutter cutter_;
  FragmentFormat format_;
  bool hasFailed_ = false;
};

}  // namespace

int RunFragments(const std::vector<std::string>& command, const FragmentPlan& plan) {
  auto child = ChildStream::Start(command);
  FragmentPlan promised = plan;
  promised.film = PromisedSeconds(ParentOf(plan.folder));
  return child ? Run(promised, std::move(*child)).Finish() : kExitNotFound;
}

}  // namespace orvo::transcoder
