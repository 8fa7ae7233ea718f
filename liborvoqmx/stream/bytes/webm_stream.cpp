#include "stream/webm_stream.h"

#include <fcntl.h>
#include <unistd.h>

#include <csignal>
#include <utility>

#include "platform/io.h"
#include "platform/plat.h"
#include "policy/trans_loading.h"
#include "stream/pipeline/monitor.h"
#include "util/lists.h"
#include "util/qmxutils.h"
#include "util/saturate.h"
#include "util/system_files.h"

namespace LibOrvoQMX {

// A process is the monitor of one stream at most.
volatile sig_atomic_t gWEBMSignal = 0;
pid_t gPidWEBMFFMPEG = 0;

namespace {

constexpr char kKind[] = "WEBM";

std::string OutputOf(int descriptor) {
  return "pipe:" + std::to_string(descriptor);
}

}  // namespace

WebMStream::WebMStream(const std::string& streamId) : DirectStream(streamId, kKind) {}

WebMStream::WebMStream(const QMXMetaData& plan) : DirectStream(plan, kKind) {}

WebMStream::~WebMStream() = default;

bool WebMStream::Init(const std::string& audioId) {
  return InitStreamCommon(audioId, false);
}

bool WebMStream::IsBeyondEnd(unsigned seconds) const {
  return seconds > m_metaData.GetDuration();
}

bool WebMStream::Transcoding(const std::string& executable, int startSeconds) {
  // A negative start is a very late one.
  const auto start = static_cast<unsigned>(startSeconds);
  if (m_streamId.empty() || executable.empty() || IsBeyondEnd(start)) {
    return false;
  }
  m_startSeconds = start;
  SaveMonitorPid(0, true);
  orvo::UniqueFd readEnd;
  orvo::UniqueFd writeEnd;
  if (!orvo::OpenPipe(readEnd, writeEnd)) {
    return false;
  }
  gPidWEBMFFMPEG = 0;
  gWEBMSignal = 0;
  const bool isStarted = StartMonitor(
      MointerSignalHandler,
      [&] {
        readEnd.Reset();
        return SaveMonitorPid(getpid(), true);
      },
      [&] { ExecuteMointer(writeEnd.Release()); });
  if (isStarted) {
    m_readEnd = std::move(readEnd);
  }
  return isStarted;
}

int WebMStream::Read(char* buffer, int length) {
  if (!m_readEnd.IsOpen()) {
    return 0;
  }
  if (length < 0) {
    return -1;
  }
  return static_cast<int>(read(m_readEnd.Get(), buffer, static_cast<size_t>(length)));
}

int WebMStream::GetSeekTimeInMillisecond() const {
  return Milliseconds(m_startSeconds);
}

std::vector<std::string> WebMStream::CalculateFFmpegArgument() const {
  if (m_profileValue.empty() || IsBeyondEnd(m_startSeconds) ||
      m_metaData.GetVideoResolutionX() == 0) {
    return {};
  }
  const bool isCopied = IsSourceAudioCodec("aac") || IsSourceAudioCodec("mp3");
  std::vector<std::string> arguments = ForceFFmpegAudioFormat(
      ForceFFmpegVideoSize(StringExplode(m_profileValue, " \n"), false), isCopied ? "copy" : "mp3");
  Append(arguments, {"-webm_seek_time", std::to_string(m_startSeconds), "-avoid_negative_ts", "0"});
  return arguments;
}

std::vector<std::string> WebMStream::CommandLine(int descriptor) const {
  const std::vector<std::string> arguments = CalculateFFmpegArgument();
  return arguments.empty() ? arguments
                           : TranscodingCommand(false, arguments, OutputOf(descriptor),
                                                orvo::SystemPath(kTranscoder));
}

void WebMStream::MointerSignalHandler(int /*signal*/) {
  gWEBMSignal = 1;
}

void WebMStream::ExecuteMointer(int writeEnd) {
  RunTranscoder(orvo::UniqueFd(writeEnd));
  WaitAllChild();
}

void WebMStream::RunTranscoder(orvo::UniqueFd writeEnd) {
  if (m_streamId.empty() || gWEBMSignal != 0) {
    return;
  }
  const std::vector<std::string> arguments = CalculateFFmpegArgument();
  if (arguments.empty()) {
    return;
  }
  const pid_t transcoder = ForkUnderMonitor();
  if (transcoder == 0) {
    fcntl(writeEnd.Get(), F_SETFD, 0);  // the transcoder's
    ExecuteTranscoding(false, arguments, OutputOf(writeEnd.Get()), orvo::SystemPath(kTranscoder));
    _exit(1);
  }
  gPidWEBMFFMPEG = transcoder;
  // The stream ends for its reader with the transcoder.
  writeEnd.Reset();
  if (transcoder > 0 && AwaitChild(transcoder, gWEBMSignal)) {
    Unregister();
  }
}

void WebMStream::Unregister() const {
  if (!m_isRemux) {
    LibMirevo::TransLoading().RemoveTransPIDLock(gPidWEBMFFMPEG);
  }
  gPidWEBMFFMPEG = 0;
}

void WebMStream::WaitAllChild() const {
  if (gPidWEBMFFMPEG > 0) {
    kill(gPidWEBMFFMPEG, SIGINT);
    EndChild(gPidWEBMFFMPEG, kTranscoderGraceMilliseconds);
    Unregister();
  }
}

bool WebMStream::KillMonitor() const {
  return SaveMonitorPid(0, false);
}

}  // namespace LibOrvoQMX
