#include "stream/webm_stream.h"

#include <unistd.h>

#include <csignal>
#include <utility>

#include "platform/io.h"
#include "platform/plat.h"
#include "platform/process.h"
#include "stream/bytes/byte_arguments.h"
#include "stream/pipeline/monitor.h"
#include "stream/pipeline/pipeline.h"
#include "stream/pipeline/transcoder_launch.h"
#include "util/saturate.h"
#include "util/system_files.h"

namespace LibOrvoQMX {

// A process is the monitor of one stream at most.
volatile sig_atomic_t gWEBMSignal = 0;
orvo::Process gPidWEBMFFMPEG;

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
  // A negative start becomes a very late one.
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
  gPidWEBMFFMPEG = orvo::Process();
  gWEBMSignal = 0;
  const bool isStarted = StartMonitor(
      MointerSignalHandler,
      [&] {
        readEnd.Reset();
        return BecomeMonitor(Directory());
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
  return WebMArguments(m_metaData, {!m_isHwTranscode, GetMetaVideoRotate()}, GetRequestAudioID(),
                       m_startSeconds);
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
  Pipeline pipeline(gPidWEBMFFMPEG, {!m_isRemux});
  const bool isStarted = pipeline.Start([&] {
    KeepAcrossExec(writeEnd);
    ExecuteTranscoding(false, arguments, OutputOf(writeEnd.Get()), orvo::SystemPath(kTranscoder));
  });
  // The reader must see the end of the stream when the transcoder ends.
  writeEnd.Reset();
  if (isStarted) {
    pipeline.Watch(gWEBMSignal);
  }
}

void WebMStream::WaitAllChild() const {
  Pipeline(gPidWEBMFFMPEG, {!m_isRemux}).End();
}

bool WebMStream::KillMonitor() const {
  return SaveMonitorPid(0, false);
}

}  // namespace LibOrvoQMX
