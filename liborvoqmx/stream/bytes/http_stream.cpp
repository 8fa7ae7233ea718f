#include "stream/http_stream.h"

#include <poll.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <utility>

#include "platform/io.h"
#include "platform/log.h"
#include "platform/plat.h"
#include "platform/unique_fd.h"
#include "policy/registry_watch.h"
#include "policy/trans_loading.h"
#include "state/stream_directory.h"
#include "stream/bytes/byte_arguments.h"
#include "stream/bytes/predicted_size.h"
#include "stream/pipeline/transcoder_launch.h"
#include "util/qmxutils.h"
#include "util/saturate.h"
#include "util/system_files.h"

namespace LibOrvoQMX {
namespace {

using LibMirevo::TransLoading;

constexpr char kKind[] = "HTTP";
constexpr int kAdmissionSeconds = 60;
constexpr int kReadTimeoutSeconds = 30;

}  // namespace

HttpStream::HttpStream(const std::string& streamId)
    : DirectStream(streamId, kKind), m_isWmv2(m_profileValue.find("wmv2") != std::string::npos) {}

HttpStream::HttpStream(const QMXMetaData& plan)
    : DirectStream(plan, kKind), m_isWmv2(m_profileValue.find("wmv2") != std::string::npos) {}

HttpStream::~HttpStream() = default;

bool HttpStream::Init(const std::string& audioId) {
  if (m_streamId == "TransSapceNotEnough") {
    SetError(m_streamId);
    return FailInit();
  }
  if (m_streamId.empty() || m_streamKind.empty() || m_profileValue.empty() ||
      !Directory().Exists() || !IsAdmitted() || !SaveAudioId(audioId, ORVO_LOG_SOURCE)) {
    return FailInit();
  }
  return true;
}

bool HttpStream::IsAdmitted() {
  const bool admitted = LibMirevo::AskRegistryUntil(
      [this](TransLoading& registry) { return registry.TransEnable(m_isHwTranscode); },
      kAdmissionSeconds);
  if (!admitted) {
    ORVO_LOG("HTTP Transcoding Init Failed: There is another app using video transcoding");
    SetError("TransEnable");
  }
  return admitted;
}

bool HttpStream::FailInit() {
  // The common function removes only linked directories; this kind's directory is not a link.
  RemoveTransDir();
  RemoveDirectory();
  return false;
}

void HttpStream::RemoveDirectory() const {
  if (IsPlainName(m_streamId)) {
    PlatExec("/bin/rm", "-rf", Directory().Path());
  }
}

bool HttpStream::Transcoding(const std::string& executable, int startSeconds) {
  if (m_streamId.empty() || executable.empty()) {
    return false;
  }
  orvo::UniqueFd readEnd;
  orvo::UniqueFd writeEnd;
  if (!orvo::OpenPipe(readEnd, writeEnd)) {
    return false;
  }
  const int forked = PlatProcForkChildNoWait();
  if (forked < 0) {
    return false;
  }
  m_startSeconds = startSeconds;
  if (forked > 0) {
    m_readEnd = std::move(readEnd);
    return true;
  }
  readEnd.Reset();
  orvo::DetachStandardStreams();
  ExecuteTranscoder(writeEnd, executable);
  return false;
}

// Runs in the detached process. Returns only if the launch could not be prepared.
void HttpStream::ExecuteTranscoder(const orvo::UniqueFd& writeEnd, const std::string& executable) {
  if (!Directory().RecordMonitor(getpid())) {
    return;
  }
  const std::vector<std::string> arguments = CalculateArgument();
  if (arguments.empty()) {
    return;
  }
  KeepAcrossExec(writeEnd);
  if (m_isGstreamer) {
    ExecuteGstreamerTranscoding(OutputOf(writeEnd.Get()), arguments, executable, true);
  } else {
    ExecuteTranscoding(!m_isWmv2, arguments, OutputOf(writeEnd.Get()), executable);
  }
  _exit(1);
}

int HttpStream::Read(char* buffer, int length) {
  if (!m_readEnd.IsOpen() || length < 0) {
    return -1;
  }
  pollfd wait{m_readEnd.Get(), POLLIN, 0};
  const int ready = poll(&wait, 1, kReadTimeoutSeconds * 1000);
  // poll reports a closed descriptor as an event.
  const bool isLost = ready > 0 && (wait.revents & POLLNVAL) != 0;
  if (ready < 0 || isLost) {
    ORVO_LOG("Select error: %d", isLost ? EBADF : errno);
    return -1;
  }
  if (ready == 0) {
    ORVO_LOG("Reading streaming data timeout");
    return -1;
  }
  const ssize_t count = read(m_readEnd.Get(), buffer, static_cast<size_t>(length));
  return count < 1 ? -1 : static_cast<int>(count);
}

bool HttpStream::Close() {
  if (!m_streamId.empty()) {
    if (const auto transcoder = Directory().OpenMonitor(); transcoder) {
      transcoder->AskToEnd(SIGTERM);
      TransLoading().RemoveTransPIDLock(transcoder->Pid());
    }
    RemoveDirectory();
  }
  m_readEnd.Reset();
  return !m_streamId.empty();
}

int HttpStream::GetSeekTimeInMillisecond() const {
  return Milliseconds(m_startSeconds);
}

unsigned HttpStream::GetMetaVideoRotate() const {
  return 0;
}

bool HttpStream::QMX_HTTP_SCALE_RESOLUTION(const std::string& requested, std::string& size) {
  size = requested;
  if (requested.empty()) {
    return false;
  }
  const float ratio = m_metaData.GetVideoRatio();
  if (ratio <= 0) {
    return false;
  }
  size = ScaledSize(requested, ratio);
  return true;
}

int HttpStream::GetTransBitRate() {
  return PromisedBitRate(m_metaData.GetProfileKey());
}

int64_t HttpStream::QMX_HTTP_PredictTransFileSize() {
  return m_streamId.empty()
             ? 0
             : PredictedSize(GetTransBitRate(), static_cast<float>(m_metaData.GetDuration()));
}

int HttpStream::ConvertByteRangeToTimeRange(int64_t offset) {
  return m_streamKind.empty() || m_profileValue.empty() ? -1
                                                        : SecondOfByte(offset, GetTransBitRate());
}

std::vector<std::string> HttpStream::CommandLine(const std::string& executable,
                                                 int descriptor) const {
  const std::vector<std::string> arguments = CalculateArgument();
  if (arguments.empty()) {
    return {};
  }
  return m_isGstreamer ? GstreamerCommand(OutputOf(descriptor), arguments, executable, true)
                       : TranscodingCommand(!m_isWmv2, arguments, OutputOf(descriptor), executable);
}

std::string HttpStream::OutputOf(int descriptor) const {
  return (m_isGstreamer ? "fd:" : "pipe:") + std::to_string(descriptor);
}

std::vector<std::string> HttpStream::CalculateArgument() const {
  return m_isGstreamer ? CalculateGstreamerArgument() : CalculateFFmpegArgument();
}

std::vector<std::string> HttpStream::CalculateFFmpegArgument() const {
  return ProgressiveArguments(m_metaData, {!m_isHwTranscode && !m_isWmv2, GetMetaVideoRotate()});
}

std::vector<std::string> HttpStream::CalculateGstreamerArgument() const {
  return StringExplode(m_profileValue, " ");
}

}  // namespace LibOrvoQMX
