#include "stream/smooth_stream.h"

#include <unistd.h>

#include <chrono>
#include <csignal>
#include <cstdlib>
#include <fstream>
#include <limits>
#include <memory>

#include "contract/fragments.h"
#include "contract/stream_files.h"
#include "platform/log.h"
#include "platform/plat.h"
#include "state/expected_viewer.h"
#include "state/stream_directory.h"
#include "state/stream_watch.h"
#include "stream/fetched_piece.h"
#include "stream/pipeline/monitor.h"
#include "stream/pipeline/transcoder_launch.h"
#include "stream/smooth/smooth_arguments.h"
#include "stream/smooth/smooth_fragments.h"
#include "stream/smooth/smooth_manifest.h"
#include "stream/smooth/smooth_pipeline.h"
#include "util/qmxutils.h"
#include "util/saturate.h"
#include "util/system_files.h"

namespace LibOrvoQMX {
namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

constexpr char kKind[] = "SS";
constexpr milliseconds kVideoComesFirst(1000);
// If the last request is further away than this, in fragments, the viewer has gone elsewhere.
constexpr int64_t kElsewhere = 10;
constexpr int kAttempts = 2;

// Copies a rendition into the texts that callers pass.
void Split(const SmoothRendition& rendition, std::string& width, std::string& height,
           std::string& videoBitrate, std::string& audioBitrate, std::string& samplingRate,
           std::string& codecPrivateData) {
  width = rendition.picture.width;
  height = rendition.picture.height;
  videoBitrate = rendition.videoBitrate;
  audioBitrate = rendition.audioBitrate;
  samplingRate = rendition.samplingRate;
  codecPrivateData = rendition.codecPrivateData;
}

}  // namespace

SmoothStream::SmoothStream(const std::string& streamId)
    : AdaptStream(streamId, kKind), m_profileKey(m_metaData.GetProfileKey()) {}

SmoothStream::SmoothStream(const QMXMetaData& plan)
    : AdaptStream(plan, kKind), m_profileKey(m_metaData.GetProfileKey()) {}

SmoothStream::~SmoothStream() = default;

bool SmoothStream::Init(const Json::Value& request, const Json::Value& /*options*/,
                        const std::string& audioId, const std::string& /*audioFormat*/) {
  if (InitAdaptStream(request, audioId)) {
    if (Predict_Manifest(request)) {
      return true;
    }
    ORVO_LOG("Failed to predect manifest for smooth streaming");
  }
  RemoveTransDir();
  return false;
}

int SmoothStream::GetSeekTimeInMillisecond() const {
  return Milliseconds(m_seekSeconds);
}

bool SmoothStream::IsPlayable() const {
  return !m_streamId.empty() && !m_streamKind.empty() && !m_profileValue.empty();
}

// --- The manifest ---

std::string SmoothStream::GetMainfest() {
  return Directory().ManifestPath();
}

bool SmoothStream::GetTransResolution(const std::string& requestedHeight, std::string& width,
                                      std::string& height, std::string& size) const {
  SmoothPicture picture;
  if (!FindPicture(m_metaData, requestedHeight, picture)) {
    return false;
  }
  width = picture.width;
  height = picture.height;
  size = picture.size;
  return true;
}

bool SmoothStream::ParseHWTransParameter(std::string& width, std::string& height,
                                         std::string& videoBitrate, std::string& audioBitrate,
                                         std::string& samplingRate,
                                         std::string& codecPrivateData) const {
  return ParseParameters(true, width, height, videoBitrate, audioBitrate, samplingRate,
                         codecPrivateData);
}

bool SmoothStream::ParseTransParameter(std::string& width, std::string& height,
                                       std::string& videoBitrate, std::string& audioBitrate,
                                       std::string& samplingRate,
                                       std::string& codecPrivateData) const {
  return ParseParameters(false, width, height, videoBitrate, audioBitrate, samplingRate,
                         codecPrivateData);
}

bool SmoothStream::ParseParameters(bool hardware, std::string& width, std::string& height,
                                   std::string& videoBitrate, std::string& audioBitrate,
                                   std::string& samplingRate, std::string& codecPrivateData) const {
  SmoothRendition rendition{
      {width, height, ""}, videoBitrate, audioBitrate, samplingRate, codecPrivateData};
  const bool isFound = FindRendition(m_metaData, hardware, rendition);
  Split(rendition, width, height, videoBitrate, audioBitrate, samplingRate, codecPrivateData);
  return isFound;
}

bool SmoothStream::Predict_Manifest(const Json::Value& request) const {
  const std::string url = GetStreamURL(request);
  const auto duration = static_cast<float>(m_metaData.GetDuration());
  if (url.empty() || m_streamId.empty() || m_profileValue.empty() || duration <= 0 ||
      duration >= static_cast<float>(std::numeric_limits<int>::max())) {
    return false;
  }
  std::ofstream manifest(Directory().ManifestPath());
  WriteManifestHead(manifest, duration);
  SmoothRendition rendition;
  if (!manifest.is_open() || !FindRendition(m_metaData, m_isHwTranscode, rendition)) {
    return false;
  }
  WriteManifestBody(manifest, static_cast<int>(duration), url, rendition);
  manifest.close();
  return manifest.good();
}

// --- Fragments ---

bool SmoothStream::ParseFragId(const std::string& fragment, std::string& start, std::string& type,
                               std::string& quality) const {
  return TakeApart(fragment, start, type, quality);
}

long SmoothStream::CalculateSeekTime(const std::string& fragment) const {
  return SaveSeekTime(FragmentPlace(Directory(), fragment));
}

long SmoothStream::SaveSeekTime(const FragmentPlace& place) const {
  const auto seconds = static_cast<long>(place.StartSecond());
  Directory().SeekTime().Write(seconds);
  return seconds;
}

bool SmoothStream::IsNeedToSeek(const std::string& fragment) const {
  return !m_streamId.empty() && !fragment.empty() &&
         SmoothFragments(Directory()).NeedsSeek(FragmentPlace(Directory(), fragment));
}

bool SmoothStream::VerifyFragmentIsReady(const std::string& fragment, unsigned lookAhead) const {
  if (m_streamId.empty() || fragment.empty()) {
    return false;
  }
  return !IsFFmpegRun() ||
         SmoothFragments(Directory()).IsComplete(FragmentPlace(Directory(), fragment), lookAhead);
}

std::string SmoothStream::ReadFragment(const std::string& fragment) {
  const FragmentPlace place(Directory(), fragment);
  if (!IsPlayable() || !place.IsPlain()) {
    ORVO_LOG("Bad parameter");
    return "";
  }
  const FetchedPiece piece = Await(place);
  return piece.state == FetchedPiece::State::kNotYet ? "" : Directory().FragmentPath(fragment);
}

FetchedPiece SmoothStream::Await(const FragmentPlace& place) const {
  using State = FetchedPiece::State;
  const SmoothFragments fragments(Directory());
  if (fragments.Await(place) == SmoothFragments::Outcome::kTimeout) {
    ORVO_LOG("ReadFragment: timeout file[%s]", place.id.c_str());
    return {State::kNotYet, ""};
  }
  if (!fragments.IsThere(place)) {
    return {State::kWillNotCome, ""};
  }
  return {State::kComplete, fragments.PathOf(place)};
}

// --- The transcoder ---

bool SmoothStream::Transcoding(const std::string& fragment) {
  if (!IsPlayable() || fragment.empty() || m_metaData.GetVideoRatio() <= 0) {
    return false;
  }
  if (fragment.find("audio") != std::string::npos) {
    return true;
  }
  const FragmentPlace place(Directory(), fragment);
  const SmoothFragments fragments(Directory());
  return StartUnless(place, [&] { return !fragments.NeedsSeek(place); });
}

// Of several requests at the same time, one restarts the transcoder and the others see that.
bool SmoothStream::StartUnless(const FragmentPlace& place, const std::function<bool()>& isNeedless,
                               const Expected& viewer) {
  if (isNeedless()) {
    return true;
  }
  StreamLock lock = Directory().SeekTime().Lock();
  return isNeedless() || StartAt(place, lock, viewer);
}

bool SmoothStream::Restart(const std::string& fragment) {
  if (m_streamId.empty() || m_profileValue.empty() || fragment.empty()) {
    return false;
  }
  StreamLock lock = Directory().SeekTime().Lock();
  return StartAt(FragmentPlace(Directory(), fragment), lock, nullptr);
}

// Until the new monitor is recorded, the lock tells waiting requests that one is starting.
bool SmoothStream::StartAt(const FragmentPlace& place, StreamLock& lock, const Expected& viewer) {
  m_seekSeconds = SaturateToInt(static_cast<double>(SaveSeekTime(place)));
  if (!SeekingHandler()) {
    return false;
  }
  ResetSmoothPipeline();
  return StartMonitor(
      MointerSignalHandler,
      [&] {
        lock.Leave();
        return BecomeMonitor(Directory());
      },
      [&] { Watch(place, viewer); });
}

std::vector<std::string> SmoothStream::CalculateFFmpegArgument() const {
  return SmoothArguments(m_metaData, m_isHwTranscode, m_seekSeconds);
}

std::vector<std::string> SmoothStream::CommandLine(const std::string& folder) const {
  const std::vector<std::string> arguments = CalculateFFmpegArgument();
  return arguments.empty()
             ? arguments
             : TranscodingCommand(m_isHwTranscode, arguments, folder + "/" + orvo::kFragmentsFolder,
                                  orvo::SystemPath(kTranscoder));
}

void SmoothStream::MointerSignalHandler(int signal) {
  OnSmoothStopSignal(signal);
}

void SmoothStream::ExecuteMointer(const std::string& fragment) {
  Watch(FragmentPlace(Directory(), fragment), nullptr);
}

void SmoothStream::Watch(const FragmentPlace& place, const Expected& viewer) {
  if (!m_streamId.empty() && !m_profileValue.empty() && !place.id.empty()) {
    RunTranscoder(viewer);
  }
  WaitAllChild();
}

void SmoothStream::RunTranscoder(const Expected& viewer) {
  const std::vector<std::string> arguments = CalculateFFmpegArgument();
  if (m_seekSeconds < 0 || arguments.empty()) {
    return;
  }
  RunSmoothPipeline(
      [&] {
        ExecuteTranscoding(m_isHwTranscode, arguments, OutputDirectory(),
                           orvo::SystemPath(kTranscoder));
      },
      [this, &viewer] {
        return (viewer != nullptr && viewer->HasStayedAway()) ||
               RemoveWhenAbandoned(ORVO_LOG_SOURCE);
      });
}

// The directory on the data volume; "" if the stream directory is not a link.
std::string SmoothStream::OutputDirectory() const {
  const std::string target = LinkTarget(Directory().Path());
  return !target.empty() && VerifyFileExist(target, 0) ? target + "/" + orvo::kFragmentsFolder : "";
}

void SmoothStream::WaitAllChild() {
  StopSmoothPipeline();
}

bool SmoothStream::StartAhead(double second) {
  orvo::FragmentId id;
  id.rate = VideoRate();
  id.start = static_cast<int64_t>(second / orvo::kFragmentSeconds) * orvo::kTicksPerFragment;
  const FragmentPlace place(Directory(), id);
  const SmoothFragments fragments(Directory());
  return IsPlayable() && !id.rate.empty() &&
         StartUnless(
             place, [&] { return !fragments.NeedsSeek(place); },
             std::make_shared<ExpectedViewer>(Directory()));
}

// --- A whole request ---

FetchedPiece SmoothStream::Fetch(const orvo::FragmentId& id) {
  using State = FetchedPiece::State;
  FetchedPiece piece{State::kNotStarted, ""};
  if (!IsPlayable() || m_metaData.GetVideoRatio() <= 0) {
    return piece;
  }
  const FragmentPlace place(Directory(), id);
  for (int attempt = 0; attempt < kAttempts; ++attempt) {
    if (!MakeSureOfTranscoder(id)) {
      return {State::kNotStarted, ""};
    }
    piece = Await(place);
    // If the transcoder has ended or restarted elsewhere, waiting longer is useless.
    if (piece.state != State::kWillNotCome || HasGoneElsewhere(id)) {
      break;
    }
  }
  return piece;
}

// Makes sure that a transcoder reaches the fragment. A new transcoder begins at the video fragment.
bool SmoothStream::MakeSureOfTranscoder(const orvo::FragmentId& id) {
  orvo::FragmentId videoId = id;
  videoId.track = orvo::Track::kVideo;
  if (id.track != orvo::Track::kVideo) {
    videoId.rate = VideoRate();
  }
  const FragmentPlace place(Directory(), id);
  const FragmentPlace video(Directory(), videoId);
  const auto isNeedless = [&] { return !NeedsStart(place, video); };
  if (id.track != orvo::Track::kVideo && !isNeedless()) {
    LetVideoComeFirst(isNeedless);
  }
  return StartUnless(video, isNeedless);
}

// "" if the tables lack the profile.
std::string SmoothStream::VideoRate() const {
  SmoothRendition rendition;
  FindRendition(m_metaData, m_isHwTranscode, rendition);
  return rendition.videoBitrate;
}

// Must a transcoder start at this fragment because no other will reach it? One whose start is up to
// 50 seconds earlier counts only while it runs.
bool SmoothStream::NeedsStart(const FragmentPlace& place, const FragmentPlace& video) const {
  const SmoothFragments fragments(Directory());
  return fragments.NeedsSeek(video) || (!IsFFmpegRun() && !fragments.IsThere(place));
}

// Players request sound and picture of the same time almost together. The request for the picture
// moves the transcoder. A request for sound does so only if no request for the picture came.
void SmoothStream::LetVideoComeFirst(const std::function<bool()>& isNeedless) const {
  const auto end = Clock::now() + kVideoComesFirst;
  const StreamWatch watch(Directory().Path());
  while (!isNeedless()) {
    const auto left = std::chrono::ceil<milliseconds>(end - Clock::now());
    if (left.count() <= 0) {
      return;
    }
    watch.Wait({}, static_cast<int>(left.count()));
  }
}

bool SmoothStream::HasGoneElsewhere(const orvo::FragmentId& id) const {
  return std::abs(Directory().LastAskedFor() - id.Number()) > kElsewhere;
}

}  // namespace LibOrvoQMX
