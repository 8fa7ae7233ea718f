// The processes of an HLS stream: the monitor, the transcoder that it watches and, where the
// GStreamer wrapper transcodes, the segmenter behind it. Members of the stream, and logging under
// its name.
#define ORVO_LOG_SOURCE "http_live_stream.cpp"

#include <unistd.h>

#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstdlib>

#include "platform/log.h"
#include "platform/plat.h"
#include "policy/argument_helper.h"
#include "policy/trans_loading.h"
#include "state/stream_lock.h"
#include "stream/http_live_stream.h"
#include "stream/pipeline/monitor.h"
#include "util/lists.h"
#include "util/qmxutils.h"
#include "util/system_files.h"

namespace LibOrvoQMX {

// A process is the monitor of one stream at most.
volatile sig_atomic_t gHLSSignal = 0;
pid_t gPidHLSTransBin = 0;
pid_t gPidHLSSegBin = 0;

namespace {

using LibMirevo::TransLoading;

constexpr char kSegmentPattern[] = "slice-%05d.ts";
constexpr char kWrapperOutput[] = "fd:1";  // one end of a pipe, whichever its number
constexpr int kWrapperSegmentSeconds = 5;  // the wrapper never copies video
constexpr int kGraceMilliseconds = 1000;

std::string ThreeDecimals(double value) {
  char text[64];
  snprintf(text, sizeof(text), "%.3f", value);
  return text;
}

}  // namespace

bool HttpLiveStream::IsAACLCAudioCodec() const {
  const Json::Value track = ArgumentHelper(m_metaData).GetAudioTrackInfoByID(GetRequestAudioID());
  return track.isObject() && track["codec"] == "aac" && track["profile"] == "LC";
}

std::vector<std::string> HttpLiveStream::AdjustAudio(const std::vector<std::string>& arguments) {
  const std::string format = ReadFile(GetQMXFileFullPath("audio_format"));
  const bool isChromecast = m_metaData.GetDevice() == "chromecast";
  if (format == "mp3") {
    return ForceFFmpegAudioFormat(arguments, "mp3");
  }
  if (IsAACLCAudioCodec() || (!isChromecast && format == "ac3_copy" &&
                              (IsSourceAudioCodec("ac3") || IsSourceAudioCodec("eac3")))) {
    return ForceFFmpegAudioFormat(arguments, "copy");
  }
  if (isChromecast || format == "aac") {
    return ForceFFmpegAudioFormat(arguments, "aac");
  }
  return arguments;
}

std::vector<std::string> HttpLiveStream::CalculateFFmpegArgument(const std::string& fragment) {
  if (m_profileValue.empty() || fragment.empty() || m_metaData.GetVideoResolutionX() == 0) {
    return {};
  }
  std::vector<std::string> arguments =
      ForceFFmpegVideoSize(AdjustAudio(StringExplode(m_profileValue, " \n")), false);
  if (!m_isRemux && m_metaData.GetVideoPixFmt() != "yuv420p") {
    Append(arguments, {"-pix_fmt", "yuv420p"});
  }
  const auto number = static_cast<int>(std::strtol(fragment.c_str(), nullptr, 10));
  Append(arguments, {"-segment_format", "mpegts", "-segment_list_type", "m3u8", "-hls_seek_time",
                     std::to_string(m_seekTime), "-segment_time", std::to_string(SegmentLength()),
                     "-segment_time_delta", ThreeDecimals(GetSegmentTimeDelta(number)),
                     "-segment_start_number", fragment});
  if (!m_metaData.IsHLSHeader()) {
    Append(arguments, {"-individual_header_trailer", "0"});
  }
  Append(arguments,
         {"-avoid_negative_ts", "0", "-break_non_keyframes", IsPreAnalysisAvailable() ? "0" : "1"});
  return arguments;
}

std::vector<std::string> HttpLiveStream::CalculateGstreamerArgument() const {
  return StringExplode(m_profileValue, " ");
}

void HttpLiveStream::ExecuteSegmenter(int readEnd, int fragment) {
  const std::string program = orvo::SystemPath(kTranscoder);
  const std::string input = "pipe:" + std::to_string(readEnd);
  const std::string length = std::to_string(kWrapperSegmentSeconds);
  const std::string number = std::to_string(fragment);
  const std::string seekTime = std::to_string(int64_t{fragment} * kWrapperSegmentSeconds * 1000);
  const std::string output = GetQMXFileFullPath(kSegmentPattern);
  execlp(program.c_str(), program.c_str(), "-i", input.c_str(), "-map", "0", "-codec", "copy", "-f",
         "segment", "-segment_time", length.c_str(), "-segment_start_number", number.c_str(),
         "-hls_seek_time", seekTime.c_str(), output.c_str(), nullptr);
}

void HttpLiveStream::MointerSignalHandler(int /*signal*/) {
  gHLSSignal = 1;
}

void HttpLiveStream::ExecuteMointer(const std::string& fragment) {
  const int number = std::stoi(fragment);
  if (!m_streamId.empty() && !m_profileValue.empty()) {
    RunPipeline(fragment, number);
  }
  WaitAllChild();
}

// Settles where the segment begins. Empty where that is nowhere.
std::vector<std::string> HttpLiveStream::PrepareArguments(const std::string& fragment) {
  m_seekTime = CalculateSeekTime(std::stoi(fragment));
  if (m_seekTime < 0) {
    return {};
  }
  std::vector<std::string> arguments =
      m_isGstreamer ? CalculateGstreamerArgument() : CalculateFFmpegArgument(fragment);
  ForceTranscodeBitrate(arguments);
  return arguments;
}

std::vector<std::string> HttpLiveStream::CommandLine(const std::string& fragment,
                                                     const std::string& folder) {
  const std::vector<std::string> arguments = PrepareArguments(fragment);
  if (arguments.empty()) {
    return {};
  }
  return m_isGstreamer ? GstreamerCommand(kWrapperOutput, arguments, GetTranscoder(), false)
                       : TranscodingCommand(false, arguments, folder + "/" + kSegmentPattern,
                                            GetTranscoder());
}

void HttpLiveStream::RunPipeline(const std::string& fragment, int number) {
  const std::vector<std::string> arguments = PrepareArguments(fragment);
  if (arguments.empty()) {
    return;
  }
  int ends[2] = {-1, -1};
  // Each end is for one of the programs: they have to survive the exec.
  if (m_isGstreamer && pipe(ends) != 0) {
    return;
  }
  orvo::UniqueFd readEnd(ends[0]);
  orvo::UniqueFd writeEnd(ends[1]);
  if (gHLSSignal != 0) {
    return;
  }

  const pid_t transcoder = ForkUnderMonitor();
  if (transcoder < 0) {
    return;
  }
  if (transcoder == 0) {
    if (m_isGstreamer) {
      readEnd.Reset();
      ExecuteGstreamerTranscoding("fd:" + std::to_string(writeEnd.Get()), arguments,
                                  GetTranscoder(), false);
    } else {
      ExecuteTranscoding(false, arguments, GetQMXFileFullPath(kSegmentPattern), GetTranscoder());
    }
    _exit(1);
  }
  gPidHLSTransBin = transcoder;

  if (m_isGstreamer) {
    const pid_t segmenter = ForkUnderMonitor();
    if (segmenter < 0) {
      kill(transcoder, SIGKILL);
      return;
    }
    if (segmenter == 0) {
      writeEnd.Reset();
      ExecuteSegmenter(readEnd.Get(), number);
      _exit(1);
    }
    gPidHLSSegBin = segmenter;
    readEnd.Reset();
    writeEnd.Reset();
  }
  WatchPipeline();
}

void HttpLiveStream::WatchPipeline() {
  const auto isAbandoned = [this] { return RemoveWhenAbandoned(ORVO_LOG_SOURCE); };
  if (!AwaitChild(gPidHLSTransBin, gHLSSignal, isAbandoned, &gPidHLSSegBin)) {
    return;
  }
  if (!m_isRemux) {
    TransLoading().RemoveTransPIDLock(gPidHLSTransBin);
  }
  gPidHLSTransBin = 0;
  if (gPidHLSSegBin > 0) {
    // It still has the end of the film to write.
    orvo::WaitForExit(gPidHLSSegBin, kGraceMilliseconds);
  }
}

void HttpLiveStream::WaitAllChild() const {
  if (gPidHLSTransBin > 0) {
    kill(gPidHLSTransBin, SIGINT);
    if (!m_isRemux) {
      TransLoading().RemoveTransPIDLock(gPidHLSTransBin);
    }
    EndChild(gPidHLSTransBin, kGraceMilliseconds,
             [] { ORVO_LOG("Force Kill Transcoding Process %d", gPidHLSTransBin); });
    gPidHLSTransBin = 0;
  }
  if (gPidHLSSegBin > 0) {
    kill(gPidHLSSegBin, SIGINT);
    if (ReapChild(gPidHLSSegBin)) {
      gPidHLSSegBin = 0;
    }
  }
}

bool HttpLiveStream::Transcoding(const std::string& fragment) {
  if (m_streamId.empty() || m_streamKind.empty() || m_profileValue.empty() || fragment.empty()) {
    return false;
  }
  if (!IsTransAndSegNeedToRestart(fragment) || IsResumeOnAppleTv(fragment)) {
    return true;
  }
  SaveFile(GetQMXFileFullPath("seek_time"), fragment);
  if (WriteSequence().empty()) {
    ORVO_LOG("Failed to generate sequence");
    return false;
  }
  if (!StopPreviousPipeline()) {
    return false;
  }
  if (!CheckSequence()) {
    return true;
  }
  gPidHLSTransBin = 0;
  gPidHLSSegBin = 0;
  gHLSSignal = 0;
  // A fragment that is no number starts nothing.
  return StartMonitor(
      MointerSignalHandler, [&] { return TakeOver(fragment); }, [&] { ExecuteMointer(fragment); });
}

// Keeps count of how such a player resumes: it asks for the place first, and then for the film's
// start, only to look at it. True for that look, which must not move the transcoder.
bool HttpLiveStream::IsResumeOnAppleTv(const std::string& fragment) const {
  const std::string path = GetQMXFileFullPath("appletv_status");
  const std::string status = ReadFile(path);
  const long number = std::strtol(fragment.c_str(), nullptr, 10);
  if (status == "Init" && number > 0) {
    SaveFile(path, "Resume");
    return false;
  }
  // No such file: not such a player.
  (void)!truncate(path.c_str(), 0);
  return status == "Resume" && number == 0;
}

// Stops the monitor and deletes its segments, unless a newer request has done so: then the segments
// are that request's.
bool HttpLiveStream::StopPreviousPipeline() const {
  const StreamLock lock(GetQMXFileFullPath("seek_time"), 0666);
  return !CheckSequence() || SeekingHandler();
}

// Makes this process the stream's monitor unless a newer request came first.
bool HttpLiveStream::TakeOver(const std::string& fragment) const {
  const std::string path = GetQMXFileFullPath("seek_time");
  const StreamLock lock(path, 0666);
  if (!CheckSequence() || !SaveMonitorPid(getpid(), true)) {
    return false;
  }
  // An older request may have put its own number there meanwhile.
  return ReadFile(path) == fragment || SaveFile(path, fragment);
}

}  // namespace LibOrvoQMX
