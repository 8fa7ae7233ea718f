#include "transcoder/fragment_run.h"

#include <algorithm>
#include <csignal>
#include <memory>
#include <utility>

#include "contract/blocks.h"
#include "transcoder/child_stream.h"
#include "transcoder/demand.h"
#include "transcoder/film_promise.h"
#include "transcoder/fragment_files.h"
#include "transcoder/fragment_format.h"
#include "transcoder/launch.h"

namespace orvo::transcoder {
namespace {

std::string ParentOf(const std::string& folder) {
  const size_t slash = folder.rfind('/');
  return slash == std::string::npos ? "." : folder.substr(0, slash + 1);
}

// An FFmpeg and the frames that it writes.
class FrameSource {
 public:
  explicit FrameSource(ChildStream child)
      : child_(std::move(child)),
        format_([this](unsigned char* buffer, int size) { return child_.ReadNext(buffer, size); }) {
  }

  ChildStream& Child() { return child_; }
  FragmentFormat& Format() { return format_; }

 private:
  ChildStream child_;
  FragmentFormat format_;
};

class Run : private FragmentSink {
 public:
  Run(const FragmentPlan& plan, ChildStream child)
      : searches_(plan.searches),
        last_(LastOfRun(plan.firstNumber)),
        film_(std::move(child)),
        files_(plan),
        demand_(ParentOf(plan.folder), plan.firstNumber),
        cutter_(plan, *this) {}

  int Finish() {
    hasFailed_ = !files_.Prepare();
    int code = Cut();
    if (code == 0 && !cutter_.HasPicture()) {
      code = FindLastPicture();
    }
    if (code == 0 && !isFull_) {
      cutter_.Finish();
    }
    return hasFailed_ ? kExitFailure : code;
  }

 private:
  // Cuts what the newest source has. Returns how its FFmpeg took that.
  int Cut() {
    if (!hasFailed_ && source_->Format().Open()) {
      if (source_ == &film_) {
        cutter_.SetHasSound(film_.Format().HasSound());
      }
      TakeFrames();
    }
    return End();
  }

  void TakeFrames() {
    while (!Child().IsStopped() && !IsEnough()) {
      const auto frame = source_->Format().Next();
      if (!frame) {
        return;
      }
      cutter_.Take(frame->track, frame->sample);
    }
  }

  bool IsEnough() const { return isFull_ || cutter_.IsSated(); }

  // What FFmpeg still writes is wanted no more; how it takes that is no matter.
  int End() {
    const bool isEnough = IsEnough();
    Child().Close();
    const int code = Child().ExitCode();
    if (Child().IsStopped()) {
      return std::max(code, kExitFailure);
    }
    return isEnough ? 0 : code;
  }

  // The film's pictures ended before the run's start: the last one stands.
  int FindLastPicture() {
    int code = 0;
    for (auto search = searches_.begin();
         code == 0 && search != searches_.end() && !cutter_.HasPicture(); ++search) {
      PrepareProcess();  // the next child gets its signals as the first one did
      auto child = ChildStream::Start(*search);
      if (!child) {
        return kExitFailure;
      }
      pictures_ = std::make_unique<FrameSource>(std::move(*child));
      source_ = pictures_.get();
      code = Cut();
    }
    return code;
  }

  // Waits until somebody wants this fragment: the one before may be ahead as far as is allowed.
  // Pictures come behind the sound of the same time, so the last ones end the run.
  void Write(Track track, int number, const std::vector<Sample>& samples) override {
    if (number > last_) {
      return;
    }
    isFull_ = track == Track::kVideo && number == last_;
    while (!Child().IsStopped() && !demand_.Wants(number - 1)) {
      Child().WaitForChange(demand_.Descriptor());
      demand_.Refresh();
    }
    if (Child().IsStopped()) {
      return;
    }
    const std::string box = source_->Format().Box(track, number, samples);
    if (box.empty() || !files_.Write(track, number, box)) {
      hasFailed_ = true;
      Child().Stop(SIGKILL);
    }
  }

  ChildStream& Child() { return source_->Child(); }

  const std::vector<std::vector<std::string>> searches_;
  const int64_t last_;
  FrameSource film_;
  std::unique_ptr<FrameSource> pictures_;  // when the run itself has none
  FrameSource* source_ = &film_;           // the newest
  FragmentFiles files_;
  Demand demand_;
  FragmentCutter cutter_;
  bool isFull_ = false;  // the last fragment of the run is being written or complete
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
