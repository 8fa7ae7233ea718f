#include "transcoder/cmaf_run.h"

#include <csignal>
#include <cstdint>
#include <memory>
#include <optional>
#include <string_view>
#include <utility>
#include <vector>

#include "contract/blocks.h"
#include "platform/io.h"
#include "platform/log.h"
#include "transcoder/child_stream.h"
#include "transcoder/cmaf_cutter.h"
#include "transcoder/cmaf_files.h"
#include "transcoder/cmaf_packets.h"
#include "transcoder/copy_text.h"
#include "transcoder/demand.h"
#include "transcoder/fragment_reader.h"
#include "transcoder/given_film.h"
#include "transcoder/kept_memory.h"
#include "transcoder/launch.h"

namespace orvo::transcoder {
namespace {

constexpr int kNothing = -1;
constexpr size_t kChunk = 65536;
constexpr size_t kSmallChunk = 16384;  // encoders write less
// What FFmpeg may encode of sound while its run pauses: some seconds instead of a minute.
constexpr int kSoundAhead = 32768;

bool EncodesSound(const CmafRequest& request) {
  return !request.IsCopy() && request.treatment != Treatment::kH264;
}

// A block that boxes share is made whole before its viewer comes.
int LeadOf(const CmafRequest& request) {
  if (HasBlocks()) {
    return kLead;
  }
  return request.IsCopy() ? kLeadOfCopy : EncodesSound(request) ? kLeadOfSound : kLead;
}

// A file of the presentation that the rendition's folder belongs to; "" if it cannot be read.
std::string ReadShared(const std::string& folder, const char* name) {
  return ReadText(folder + "/../" + name);
}

class Run : private CmafSink {
 public:
  Run(const CmafRequest& request, const CmafPlan& plan, ChildStream child)
      : request_(request),
        plan_(plan),
        last_(LastOfRun(request.number)),
        files_(request.folder),
        demand_(request.folder, request.number, LeadOf(request)),
        child_(std::move(child)),
        buffer_(request.IsCopy() ? kChunk : kSmallChunk),
        reader_([this](CmafSample sample) { Take(std::move(sample)); }) {}

  bool HasHeader() const { return hasHeader_; }

  int Finish() {
    while (!IsDone() && Step()) {
    }
    if (!IsDone() && !child_.IsStopped() && cutter_ != nullptr) {
      cutter_->Finish();
    }
    const bool isEnough = IsDone();
    child_.Close();
    if (isEnough && !child_.IsStopped()) {
      child_.Stop(SIGKILL);
      child_.ExitCode();
      return hasFailed_ ? kExitFailure : 0;
    }
    return child_.ExitCode();
  }

 private:
  bool IsDone() const {
    return hasFailed_ || isFull_ ||
           (cutter_ != nullptr && (request_.isHeaderOnly || cutter_->IsSated()));
  }

  // Takes what has come. False at the stream's end.
  bool Step() {
    if (!child_.Wait(kNothing, false).hasOutput || child_.IsStopped()) {
      return !child_.IsStopped();
    }
    const ssize_t count = child_.Read(buffer_.data(), buffer_.size());
    if (count <= 0) {
      return count < 0;
    }
    if (!reader_.Add({buffer_.data(), static_cast<size_t>(count)})) {
      ORVO_LOG("The stream of [%s] cannot be read", request_.film.c_str());
      hasFailed_ = true;
    }
    if (reader_.Track() && cutter_ == nullptr) {
      Prepare(*reader_.Track());
    }
    return true;
  }

  void Prepare(const CmafTrack& track) {
    CmafSink& sink = *this;
    if (track.isPicture) {
      const bool reorders = request_.treatment == Treatment::kPictures && plan_.delay > 0;
      cutter_ = std::make_unique<CmafPictureCutter>(track, plan_, request_.number, reorders, sink);
    } else {
      cutter_ = std::make_unique<CmafSoundCutter>(track, plan_, request_.number, sink);
    }
    // A stream of packets does not describe every codec.
    hasHeader_ = track.descriptions != std::string_view(kCmafNoCodec, sizeof(kCmafNoCodec));
    if (hasHeader_) {
      Check(files_.WriteHeader(CmafHeader(track, track.isPicture ? plan_.delay : 0)));
    }
  }

  void Take(CmafSample sample) {
    if (cutter_ == nullptr) {
      Prepare(*reader_.Track());
    }
    if (!IsDone() && !child_.IsStopped()) {
      sample.time -= kCmafLead * reader_.Track()->clock;
      cutter_->Take(std::move(sample));
    }
  }

  // Waits until somebody wants the segment: the one before may be ahead as far as is allowed.
  void Begin(int number) override {
    isFull_ = number > last_;
    while (!isFull_ && !child_.IsStopped() && !demand_.Wants(number - 1)) {
      GiveMemoryBack();
      child_.WaitForChange(demand_.Descriptor());
      demand_.Refresh();
    }
    isWriting_ = !isFull_ && !child_.IsStopped();
    Check(!isWriting_ || files_.Begin(number));
  }

  void Write(const std::string& chunk) override {
    Check(!isWriting_ || hasFailed_ || files_.Write(chunk));
  }

  void End() override { Check(!isWriting_ || hasFailed_ || child_.IsStopped() || files_.End()); }

  void Check(bool isRight) {
    if (!isRight && !hasFailed_) {
      ORVO_LOG("The segments in [%s] cannot be written", request_.folder.c_str());
      hasFailed_ = true;
    }
  }

  const CmafRequest& request_;
  const CmafPlan& plan_;
  int64_t last_;
  CmafFiles files_;
  Demand demand_;
  ChildStream child_;
  std::vector<char> buffer_;
  FragmentReader reader_;
  std::unique_ptr<CmafCutter> cutter_;
  bool hasHeader_ = false;
  bool isFull_ = false;  // the last segment of the run is complete
  bool isWriting_ = false;
  bool hasFailed_ = false;
};

std::optional<ChildStream> StartPackets(const CmafRequest& request) {
  const UniqueFd film = OpenFilm(request.film);
  auto stream =
      film.IsOpen() ? ChildStream::StartByParent(TextOf(request), film.Get()) : std::nullopt;
  return stream ? std::move(stream) : ChildStream::Start(CmafPacketsCommand(request));
}

// Makes the header of a copy from its stream of packets. False if that does not describe the codec.
bool HasMadeHeader(const CmafRequest& request, const CmafPlan& plan, ChildStream packets) {
  Run run(request, plan, std::move(packets));
  return run.Finish() == 0 && run.HasHeader();
}

}  // namespace

int RunCmaf(const CmafRequest& request, CmafSurroundings surroundings) {
  if (request.IsCopy()) {
    KeepMemory();
  } else {
    SpareMemory();
  }
  const auto plan = CmafPlan::Parse(ReadShared(request.folder, kCmafPlanFile));
  if (!plan || request.number >= plan->Count()) {
    ORVO_LOG("There is no plan for the segments in [%s]", request.folder.c_str());
    return kExitUsage;
  }
  surroundings.clockStart =
      CmafKnowledge::Parse(ReadShared(request.folder, kCmafPicturesFile)).clockStart;
  CmafRequest placed = request;
  placed.from = static_cast<double>(plan->Start(request.number)) / kPlanClock;
  // FFmpeg brings packets of transport and program streams into the form that MP4 needs.
  bool readsPackets = request.IsCopy() && !surroundings.lacksIndex;
  if (readsPackets && request.isHeaderOnly) {
    auto packets = StartPackets(placed);
    readsPackets = false;  // unless they describe the codec, FFmpeg does
    if (packets && HasMadeHeader(request, *plan, std::move(*packets))) {
      return 0;
    }
  }
  auto child = readsPackets ? StartPackets(placed)
                            : ChildStream::Start(CmafCommand(request, *plan, surroundings));
  if (child && EncodesSound(request)) {
    child->LimitAhead(kSoundAhead);
  }
  return child ? Run(request, *plan, std::move(*child)).Finish() : kExitNotFound;
}

}  // namespace orvo::transcoder
