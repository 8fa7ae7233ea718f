// The processes of a Smooth Streaming stream: the monitor and the transcoder that it watches.
// Members of the stream, and logging under its name.
#define ORVO_LOG_SOURCE "smooth_stream.cpp"

#include <unistd.h>

#include <csignal>

#include "platform/log.h"
#include "platform/plat.h"
#include "policy/trans_loading.h"
#include "state/stream_lock.h"
#include "stream/pipeline/monitor.h"
#include "stream/smooth_stream.h"
#include "util/lists.h"
#include "util/qmxutils.h"
#include "util/saturate.h"
#include "util/system_files.h"

namespace LibOrvoQMX {

// A process is the monitor of one stream at most.
volatile sig_atomic_t gSSSignal = 0;
pid_t gPidSSFFMPEG = 0;

namespace {

constexpr char kFragmentSeconds[] = "5";
constexpr char kFragmentFolder[] = "/smooth";

void Unregister() {
  LibMirevo::TransLoading().RemoveTransPIDLock(gPidSSFFMPEG);
  gPidSSFFMPEG = 0;
}

}  // namespace

bool SmoothStream::Transcoding(const std::string& fragment) {
  if (m_streamId.empty() || m_streamKind.empty() || m_profileValue.empty() || fragment.empty() ||
      m_metaData.GetVideoRatio() <= 0) {
    return false;
  }
  if (fragment.find("audio") != std::string::npos) {
    return true;
  }
  if (!IsNeedToSeek(fragment)) {
    return true;
  }
  // Of requests that come together one restarts the transcoder, and the others see that.
  StreamLock lock(GetQMXFileFullPath("seek_time"), 0666);
  return !IsNeedToSeek(fragment) || StartAt(fragment, lock);
}

bool SmoothStream::Restart(const std::string& fragment) {
  if (m_streamId.empty() || m_profileValue.empty() || fragment.empty()) {
    return false;
  }
  StreamLock lock(GetQMXFileFullPath("seek_time"), 0666);
  return StartAt(fragment, lock);
}

// Until the new monitor is recorded the lock tells waiting requests that one is on its way.
bool SmoothStream::StartAt(const std::string& fragment, StreamLock& lock) {
  m_seekSeconds = SaturateToInt(static_cast<double>(CalculateSeekTime(fragment)));
  if (!SeekingHandler()) {
    return false;
  }
  gPidSSFFMPEG = 0;
  gSSSignal = 0;
  return StartMonitor(
      MointerSignalHandler,
      [&] {
        lock.Leave();
        return SaveMonitorPid(getpid(), true);
      },
      [&] { ExecuteMointer(fragment); });
}

std::vector<std::string> SmoothStream::CalculateFFmpegArgument() const {
  if (m_profileValue.empty() || m_metaData.GetVideoRatio() <= 0) {
    return {};
  }
  std::vector<std::string> arguments = StringExplode(m_profileValue, " \n");
  for (size_t i = 1; i < arguments.size(); ++i) {
    if (arguments[i - 1] != "-s") {
      continue;
    }
    std::string width;
    std::string height;
    std::string size;
    GetTransResolution(arguments[i], width, height, size);
    if (size.empty()) {
      ORVO_LOG("Failed to calculate transcoding resolution");
      return {};
    }
    arguments[i] = size;
  }
  Append(arguments,
         {"-fragment_length", kFragmentSeconds, "-seek_time", std::to_string(m_seekSeconds)});
  if (m_isHwTranscode) {
    Append(arguments, {"-filled", "1"});
  }
  return arguments;
}

std::vector<std::string> SmoothStream::CommandLine(const std::string& folder) const {
  const std::vector<std::string> arguments = CalculateFFmpegArgument();
  return arguments.empty()
             ? arguments
             : TranscodingCommand(m_isHwTranscode, arguments, folder + kFragmentFolder,
                                  orvo::SystemPath(kTranscoder));
}

void SmoothStream::MointerSignalHandler(int /*signal*/) {
  gSSSignal = 1;
}

void SmoothStream::ExecuteMointer(const std::string& fragment) {
  if (!m_streamId.empty() && !m_profileValue.empty() && !fragment.empty()) {
    gPidSSFFMPEG = 0;
    RunTranscoder();
  }
  WaitAllChild();
}

void SmoothStream::RunTranscoder() {
  const std::vector<std::string> arguments = CalculateFFmpegArgument();
  if (m_seekSeconds < 0 || arguments.empty() || gSSSignal != 0) {
    return;
  }
  const pid_t transcoder = ForkUnderMonitor();
  if (transcoder == 0) {
    ExecuteTranscoding(m_isHwTranscode, arguments, OutputDirectory(),
                       orvo::SystemPath(kTranscoder));
    _exit(1);
  }
  if (transcoder < 0) {
    return;
  }
  gPidSSFFMPEG = transcoder;
  const auto isAbandoned = [this] { return RemoveWhenAbandoned(ORVO_LOG_SOURCE); };
  if (AwaitChild(transcoder, gSSSignal, isAbandoned)) {
    Unregister();
  }
}

// On the data volume; "" where the stream directory is no link to one.
std::string SmoothStream::OutputDirectory() const {
  const std::string target = LinkTarget(GetQMXFileFullPath(""));
  return !target.empty() && VerifyFileExist(target, 0) ? target + kFragmentFolder : "";
}

void SmoothStream::WaitAllChild() {
  if (gPidSSFFMPEG > 0) {
    kill(gPidSSFFMPEG, SIGINT);
    EndChild(gPidSSFFMPEG, kTranscoderGraceMilliseconds);
    Unregister();
  }
}

}  // namespace LibOrvoQMX
