#include "stream/http_live_stream.h"

#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <limits>
#include <memory>

#include "contract/blocks.h"
#include "contract/stream_files.h"
#include "platform/log.h"
#include "platform/plat.h"
#include "playlist/address_text.h"
#include "playlist/fixed_plan.h"
#include "playlist/subtitle_playlist.h"
#include "state/expected_viewer.h"
#include "state/stream_directory.h"
#include "stream/fetched_piece.h"
#include "stream/hls/hls_arguments.h"
#include "stream/hls/hls_pipeline.h"
#include "stream/hls/hls_segments.h"
#include "stream/hls/subtitle_tracks.h"
#include "stream/pipeline/monitor.h"
#include "stream/pipeline/transcoder_launch.h"
#include "util/qmxutils.h"
#include "util/system_files.h"

namespace LibOrvoQMX {
namespace {

constexpr char kKind[] = "HLS";
constexpr char kWrapperOutput[] = "fd:1";  // one end of a pipe, whatever its number

// The content of "appletv_status": an Apple TV has opened the stream; it has resumed.
constexpr char kAppleTvInit[] = "Init";
constexpr char kAppleTvResume[] = "Resume";

bool IsAppleTv10(const char* userAgent) {
  const std::string agent = userAgent != nullptr ? userAgent : "";
  return agent.find("Apple TV") != std::string::npos && agent.find("OS 10") != std::string::npos;
}

std::string QuoteOf(const Json::Value& request) {
  return AdaptStream::IsWebapi5(request) ? "%22" : "";
}

}  // namespace

HttpLiveStream::HttpLiveStream(const std::string& streamId) : AdaptStream(streamId, kKind) {}

HttpLiveStream::HttpLiveStream(const QMXMetaData& plan) : AdaptStream(plan, kKind) {}

HttpLiveStream::~HttpLiveStream() = default;

// --- Opening ---

bool HttpLiveStream::Init(const Json::Value& request, const Json::Value& options,
                          const std::string& audioId, const std::string& audioFormat) {
  if (!InitAdaptStream(request, audioId)) {
    return false;
  }
  m_hasSubtitle = options.isObject() && options.isMember("subtitle_id");
  if (!SaveAudioFormat(audioFormat) || (m_hasSubtitle && !GenSubtitlePlaylists(request, options))) {
    return FailInit();
  }
  if (!GenPlaylist(request, MANIFEST_TYPE_VIDEO)) {
    ORVO_LOG("Failed to generate video m3u8 playlist for HLS [file path=%s]",
             m_metaData.GetFilePath().c_str());
    return FailInit();
  }
  return MarkAppleTv() || FailInit();
}

bool HttpLiveStream::FailInit() {
  RemoveTransDir();
  return false;
}

bool HttpLiveStream::SaveAudioFormat(const std::string& audioFormat) const {
  const StateFile file = Directory().AudioFormat();
  if (audioFormat.empty() || file.Write(audioFormat)) {
    return true;
  }
  ORVO_LOG("Failed to save audio format [%s] in [%s]", audioFormat.c_str(), file.Path().c_str());
  return false;
}

bool HttpLiveStream::GenSubtitlePlaylists(const Json::Value& request, const Json::Value& options) {
  const std::string source = m_metaData.GetFilePath();
  if (!GenIndexPlaylist(request, options)) {
    ORVO_LOG("Failed to generate index m3u8 video playlist for HLS [file path=%s]", source.c_str());
    return false;
  }
  if (!GenPlaylist(options, MANIFEST_TYPE_SUBTITLE)) {
    ORVO_LOG("Failed to generate subtitle m3u8 playlist for HLS [file path=%s]", source.c_str());
    return false;
  }
  return true;
}

bool HttpLiveStream::MarkAppleTv() const {
  if (!IsAppleTv10(std::getenv("HTTP_USER_AGENT")) ||
      Directory().AppleTvStatus().Write(kAppleTvInit)) {
    return true;
  }
  ORVO_LOG("Failed to generate stat file for apple tv 10");
  return false;
}

// --- Playlists ---

bool HttpLiveStream::GenPlaylist(const Json::Value& request, ManifestType type) {
  const bool isVideo = type == MANIFEST_TYPE_VIDEO;
  const std::string url = isVideo ? GetStreamURL(request) : GetSubtitleURL(request);
  const auto duration = static_cast<int>(m_metaData.GetDuration());
  if (url.empty() || m_streamId.empty() || duration <= 0) {
    return false;
  }
  HLSHelper manifest(PlaylistPath(type), type, url);
  if (!manifest.is_open()) {
    return false;
  }
  bool isPlanned = false;
  if (isVideo) {
    manifest.SetFragmentIdQuote(QuoteOf(request));
    unlink(Directory().KeptPlanPath().c_str());
    isPlanned = IsPreAnalysisAvailable() && m_planner.WriteManifest(manifest);
  }
  if (!isPlanned) {
    WriteManifestByFixedSegmentTime(manifest, duration);
  }
  return !isVideo || !m_isRemux || KeepPlan(isPlanned);
}

bool HttpLiveStream::KeepPlan(bool isPlanned) const {
  const std::string path = Directory().KeptPlanPath();
  const std::string aside = path + ".new";
  // A result without key frames gives no plan.
  const auto& plan = isPlanned ? m_planner : preprocess::PreprocessHelper();
  if (plan.SaveResult(aside) && rename(aside.c_str(), path.c_str()) == 0) {
    return true;
  }
  unlink(aside.c_str());
  return false;
}

std::string HttpLiveStream::PlaylistPath(ManifestType type) const {
  const StreamDirectory directory = Directory();
  if (type == MANIFEST_TYPE_SUBTITLE) {
    return directory.SubtitleTemplatePath();
  }
  return m_hasSubtitle ? directory.VideoPlaylistPath() : directory.IndexPath();
}

void HttpLiveStream::WriteManifestByFixedSegmentTime(HLSHelper& manifest, int duration) const {
  WriteFixedPlan(manifest, duration, SegmentSeconds(m_isRemux));
}

bool HttpLiveStream::IsPreAnalysisAvailable() {
  if (!m_isRemux || VerifyFileExist(orvo::SystemPath(kNoPreAnalysisFile), 0) ||
      !m_metaData.IsUsePreAnalysis()) {
    return false;
  }
  if (!m_planner.IsAvailable()) {
    const std::string kept = Directory().KeptPlanPath();
    const int length = SegmentSeconds(m_isRemux);
    m_planner = !kept.empty() && VerifyFileExist(kept, 0)
                    ? preprocess::PreprocessHelper::FromResult(kept, length)
                    : preprocess::PreprocessHelper(m_metaData.GetFilePath(), length);
  }
  return m_planner.IsAvailable();
}

// --- Subtitles ---

std::string HttpLiveStream::GetSubtitleURL(const Json::Value& options) const {
  return SubtitleAddress(options, QuoteOf(options));
}

bool HttpLiveStream::GenIndexPlaylist(const Json::Value& request,
                                      const Json::Value& options) const {
  const std::string url = GetStreamURL(request);
  if (url.empty() || m_streamId.empty()) {
    return false;
  }
  std::ofstream index(Directory().IndexPath());
  if (!index.is_open()) {
    return false;
  }
  const std::string subtitleId = options.isObject() ? AddressText(options["subtitle_id"]) : "";
  WriteIndexPlaylist(index, url, QuoteOf(request), SubtitlesOf(m_metaData, subtitleId));
  return true;
}

std::string HttpLiveStream::GetSubtitleManifestPath(const std::string& subtitleId) const {
  const StreamDirectory directory = Directory();
  const std::string name = subtitleId.substr(subtitleId.rfind('/') + 1);
  if (name.empty()) {
    return "";
  }
  std::ifstream source(directory.SubtitleTemplatePath());
  if (!source.is_open()) {
    ORVO_LOG("failed to open file %s", directory.SubtitleTemplatePath().c_str());
    return "";
  }
  const std::string path = directory.SubtitlePlaylistPath(name);
  // Another request may be sending the same playlist at this moment.
  const std::string temporary = directory.FilePath(".subtitle." + std::to_string(getpid()));
  std::ofstream playlist(temporary);
  WriteTrackPlaylist(playlist, source, subtitleId);
  playlist.close();
  if (!playlist || rename(temporary.c_str(), path.c_str()) != 0) {
    unlink(temporary.c_str());
    ORVO_LOG("failed to open output file %s", path.c_str());
    return "";
  }
  return path;
}

std::string HttpLiveStream::GetMainfest(const std::string& type, const std::string& subtitleId) {
  if (m_streamId.empty()) {
    return "";
  }
  if (type == "subtitle") {
    return GetSubtitleManifestPath(subtitleId);
  }
  return type == "video" ? Directory().VideoPlaylistPath() : Directory().IndexPath();
}

HttpLiveStream::SubtitleList HttpLiveStream::GetSubtitleMap(const std::string& subtitleId) const {
  return SubtitlesOf(m_metaData, subtitleId);
}

HttpLiveStream::SubtitleList HttpLiveStream::GetExternalSubtitle() const {
  return SubtitlesBeside(m_metaData);
}

HttpLiveStream::SubtitleList HttpLiveStream::GetInternalSubtitle() const {
  return SubtitlesIn(m_metaData);
}

// --- Arguments ---

bool HttpLiveStream::IsAACLCAudioCodec() const {
  return IsAacLc(m_metaData, GetRequestAudioID());
}

std::vector<std::string> HttpLiveStream::CalculateFFmpegArgument(const std::string& fragment) {
  return FfmpegArguments(Segment(fragment));
}

std::vector<std::string> HttpLiveStream::FfmpegArguments(const Segment& segment) {
  return HlsArguments(m_metaData, {segment,
                                   m_seekTime,
                                   m_isRemux,
                                   IsPreAnalysisAvailable(),
                                   GetRequestAudioID(),
                                   Directory().AudioFormat().Read(),
                                   {!m_isHwTranscode, GetMetaVideoRotate()}});
}

std::vector<std::string> HttpLiveStream::CalculateGstreamerArgument() const {
  return StringExplode(m_profileValue, " ");
}

// Determines where the segment begins. Returns an empty list if it lies outside the film.
std::vector<std::string> HttpLiveStream::PrepareArguments(const Segment& segment) {
  m_seekTime = CalculateSeekTime(segment.number);
  if (m_seekTime < 0) {
    return {};
  }
  std::vector<std::string> arguments =
      m_isGstreamer ? CalculateGstreamerArgument() : FfmpegArguments(segment);
  ForceTranscodeBitrate(arguments);
  return arguments;
}

std::vector<std::string> HttpLiveStream::CommandLine(const std::string& fragment,
                                                     const std::string& folder) {
  const std::vector<std::string> arguments = PrepareArguments(Segment(fragment));
  if (arguments.empty()) {
    return {};
  }
  return m_isGstreamer ? GstreamerCommand(kWrapperOutput, arguments, GetTranscoder(), false)
                       : TranscodingCommand(false, arguments, folder + "/" + orvo::kSegmentPattern,
                                            GetTranscoder());
}

// --- The pipeline ---

void HttpLiveStream::ExecuteSegmenter(int readEnd, int fragment) {
  // The wrapper takes the end of its reader for a failure, so its runs do not end with a block.
  unsetenv(orvo::kBlocksVariable);
  ReplaceProcess(SegmenterCommand(readEnd, fragment, Directory().SegmentPattern()));
}

void HttpLiveStream::MointerSignalHandler(int signal) {
  OnHlsStopSignal(signal);
}

void HttpLiveStream::ExecuteMointer(const std::string& fragment) {
  (void)std::stoi(fragment);  // throws if it is not a number
  Watch(Segment(fragment));
}

// The monitor's work.
void HttpLiveStream::Watch(const Segment& segment, const Expected& viewer) {
  if (!m_streamId.empty() && !m_profileValue.empty() && segment.isNumber) {
    RunPipeline(segment, viewer);
  }
  WaitAllChild();
}

void HttpLiveStream::RunPipeline(const Segment& segment, const Expected& viewer) {
  const std::vector<std::string> arguments = PrepareArguments(segment);
  if (arguments.empty()) {
    return;
  }
  HlsPrograms programs;
  programs.becomeTranscoder = [&](int output) {
    if (m_isGstreamer) {
      ExecuteGstreamerTranscoding("fd:" + std::to_string(output), arguments, GetTranscoder(),
                                  false);
    } else {
      ExecuteTranscoding(false, arguments, Directory().SegmentPattern(), GetTranscoder());
    }
  };
  if (m_isGstreamer) {
    programs.becomeSegmenter = [&](int input) { ExecuteSegmenter(input, segment.number); };
  }
  programs.isAbandoned = [this, &viewer] {
    return (viewer != nullptr && viewer->HasStayedAway()) || RemoveWhenAbandoned(ORVO_LOG_SOURCE);
  };
  programs.isRegistered = !m_isRemux;
  RunHlsPipeline(programs);
}

void HttpLiveStream::WaitAllChild() const {
  StopHlsPipeline(!m_isRemux);
}

bool HttpLiveStream::Transcoding(const std::string& fragment) {
  return IsPlayable() && !fragment.empty() && Reach(Segment(fragment));
}

// Makes sure that a transcoder reaches the segment soon.
bool HttpLiveStream::Reach(const Segment& segment, const Expected& viewer) {
  const StreamDirectory directory = Directory();
  if (!HlsSegments(directory).NeedsRestart(segment) || IsResumeOnAppleTv(segment.number)) {
    return true;
  }
  directory.SeekTime().Write(segment.text);
  if (WriteSequence().empty()) {
    ORVO_LOG("Failed to generate sequence");
    directory.SeekTime().Clear();
    return false;
  }
  return Restart(segment, viewer);
}

bool HttpLiveStream::StartAhead(double second) {
  return IsPlayable() &&
         Reach(Segment(SegmentAt(second)), std::make_shared<ExpectedViewer>(Directory()));
}

bool HttpLiveStream::StartWhenFinished(int number) {
  const std::string seen = SeenSequence();
  const HlsSegments segments(Directory());
  if (segments.Has(number)) {
    return true;
  }
  if (!IsPlayable() || !segments.IsFinished()) {
    return false;
  }
  m_sequence = WriteSequenceAfter(Directory(), seen);
  if (m_sequence.empty()) {
    return false;
  }
  const Segment segment(number);
  Directory().SeekTime().Write(segment.text);
  return Restart(segment);
}

// No segment is shorter than the usual length.
int HttpLiveStream::SegmentAt(double second) {
  const int length = SegmentSeconds(m_isRemux);
  int number = std::max(0, static_cast<int>(second / length));
  const auto startsLater = [&](int start) { return start < 0 || start > second * 1000; };
  while (number > 0 && startsLater(CalculateSeekTime(number))) {
    --number;
  }
  return number;
}

// Starts a transcoder at the segment because the one that the stream's files speak of has died.
// `seen` is the sequence that this was seen under: of several requests one starts it.
bool HttpLiveStream::Revive(const Segment& segment, const std::string& seen) {
  m_sequence = WriteSequenceAfter(Directory(), seen);
  if (m_sequence.empty()) {
    return Reach(segment);
  }
  Directory().SeekTime().Write(segment.text);
  return Restart(segment);
}

// Replaces the stream's pipeline by one that begins at the segment. After a failure the files do
// not speak of a transcoder, so the next request tries again.
bool HttpLiveStream::Restart(const Segment& segment, const Expected& viewer) {
  const bool isDone = StopPreviousPipeline() && StartPipeline(segment, viewer);
  if (!isDone && CheckSequence()) {
    Directory().SeekTime().Clear();
  }
  return isDone;
}

// Does nothing if a newer request starts one.
bool HttpLiveStream::StartPipeline(const Segment& segment, const Expected& viewer) {
  if (!CheckSequence()) {
    return true;
  }
  ResetHlsPipeline();
  return StartMonitor(
      MointerSignalHandler, [&] { return BecomeMonitor(Directory(), segment, m_sequence); },
      [&] { Watch(segment, viewer); });
}

// An Apple TV that resumes a film first requests the place, and then the film's start, which it
// does not play. Returns true for that second request, which must not move the transcoder.
bool HttpLiveStream::IsResumeOnAppleTv(int number) const {
  const StateFile file = Directory().AppleTvStatus();
  const std::string status = file.Read();
  if (status == kAppleTvInit && number > 0) {
    file.Write(std::string(kAppleTvResume));
    return false;
  }
  // Only the stream of an Apple TV has this file.
  file.Clear();
  return status == kAppleTvResume && number == 0;
}

// Stops the monitor and deletes its segments. Does nothing if a newer request has done so, because
// the segments then belong to that request.
bool HttpLiveStream::StopPreviousPipeline() const {
  const StreamLock lock = Directory().SeekTime().Lock();
  return !CheckSequence() || SeekingHandler();
}

// --- Segments ---

std::string HttpLiveStream::GetSegmentTsPath(int fragment) const {
  return Directory().SegmentPath(fragment);
}

int HttpLiveStream::CalculateSeekTime(int fragment) {
  if (fragment < 0) {
    return -1;
  }
  if (IsPreAnalysisAvailable()) {
    return m_planner.GetSeekTime(static_cast<unsigned>(fragment));
  }
  const int64_t start = int64_t{fragment} * SegmentSeconds(m_isRemux) * 1000;
  return start <= std::numeric_limits<int>::max() ? static_cast<int>(start) : -1;
}

double HttpLiveStream::GetSegmentTimeDelta(int fragment) const {
  return SegmentDelta(fragment, m_seekTime, m_isRemux);
}

int HttpLiveStream::GetSeekTimeInMillisecond() const {
  return m_seekTime;
}

std::string HttpLiveStream::WriteSequence() {
  m_sequence = LibOrvoQMX::WriteSequence(Directory());
  return m_sequence;
}

bool HttpLiveStream::CheckSequence() const {
  return IsLatestSequence(Directory(), m_sequence);
}

bool HttpLiveStream::IsTransAndSegNeedToRestart(const std::string& fragment) const {
  return !m_streamId.empty() && !fragment.empty() &&
         HlsSegments(Directory()).NeedsRestart(Segment(fragment));
}

bool HttpLiveStream::VerifyFragmentIsReady(const std::string& fragment) const {
  return !fragment.empty() && HlsSegments(Directory()).IsComplete(Segment(fragment).number);
}

std::string HttpLiveStream::ReadFragment(const std::string& fragment) {
  if (!IsPlayable() || fragment.empty()) {
    return "";
  }
  return Await(Segment(fragment).number, SeenSequence()).path;
}

FetchedPiece HttpLiveStream::Fetch(int number) {
  using State = FetchedPiece::State;
  const Segment segment(number);
  const std::string seen = SeenSequence();
  if (HlsSegments(Directory()).IsLeft(segment)) {
    return {State::kNotYet, ""};
  }
  if (!IsPlayable() || !Reach(segment)) {
    return {State::kNotStarted, ""};
  }
  AwaitedSegment awaited = AwaitFromAny(number, seen);
  if (awaited.isOver && m_sequence.empty()) {
    if (!Revive(segment, seen)) {
      return {State::kNotStarted, ""};
    }
    awaited = AwaitFromAny(number, SeenSequence());
  }
  if (!awaited.path.empty()) {
    return {State::kComplete, awaited.path};
  }
  return {awaited.isOver ? State::kWillNotCome : State::kNotYet, ""};
}

// A newer request may have restarted the stream for this segment, too. Its transcoder then makes
// the segment for both.
AwaitedSegment HttpLiveStream::AwaitFromAny(int number, const std::string& seen) {
  AwaitedSegment awaited = AwaitUnlessLost(number, seen);
  if (!awaited.isReplaced) {
    return awaited;
  }
  m_sequence.clear();
  const HlsSegments segments(Directory());
  return segments.Await(
      number, [&] { return segments.IsElsewhere(number); }, SeenSequence());
}

AwaitedSegment HttpLiveStream::AwaitUnlessLost(int number, const std::string& seen) const {
  const HlsSegments segments(Directory());
  if (m_sequence.empty() && !segments.IsComplete(number) && segments.IsRestartLost()) {
    return {"", true};
  }
  return Await(number, seen);
}

bool HttpLiveStream::IsPlayable() const {
  return !m_streamId.empty() && !m_streamKind.empty() && !m_profileValue.empty();
}

std::string HttpLiveStream::SeenSequence() const {
  return Directory().RequestSequence().Read();
}

// A request that has restarted the stream knows its own sequence.
AwaitedSegment HttpLiveStream::Await(int number, const std::string& seen) const {
  return HlsSegments(Directory())
      .Await(
          number, [this] { return !CheckSequence(); }, m_sequence.empty() ? seen : m_sequence);
}

}  // namespace LibOrvoQMX
