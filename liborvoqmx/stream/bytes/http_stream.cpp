#include "stream/http_stream.h"

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <limits>
#include <utility>

#include "platform/io.h"
#include "platform/log.h"
#include "platform/plat.h"
#include "platform/unique_fd.h"
#include "policy/registry_watch.h"
#include "policy/trans_loading.h"
#include "util/qmxutils.h"
#include "util/saturate.h"
#include "util/system_files.h"

namespace LibOrvoQMX {
namespace {

using LibMirevo::TransLoading;

constexpr char kKind[] = "HTTP";
constexpr int kAdmissionSeconds = 60;
constexpr int kReadTimeoutSeconds = 30;
constexpr int kBitsPerKilobit = 1024;

// The number behind a two-letter prefix.
bool ParseRate(const std::string& part, const char* prefix, int& rate) {
  if (part.rfind(prefix, 0) != 0) {
    return false;
  }
  rate = static_cast<int>(std::strtol(part.c_str() + 2, nullptr, 10));
  return true;
}

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
      !VerifyFileExist(GetQMXFileFullPath(""), 0) || !IsAdmitted() || !SaveAudioId(audioId)) {
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

bool HttpStream::SaveAudioId(const std::string& audioId) {
  const std::string path = GetQMXFileFullPath("audio_id");
  if (audioId.empty() || SaveFile(path, audioId)) {
    return true;
  }
  ORVO_LOG("Failed to save audio ID [%s] in [%s]", audioId.c_str(), path.c_str());
  return false;
}

bool HttpStream::FailInit() {
  // The common removal knows links only; this kind's directory is a real one.
  RemoveTransDir();
  RemoveDirectory();
  return false;
}

void HttpStream::RemoveDirectory() const {
  if (IsPlainName(m_streamId)) {
    PlatExec("/bin/rm", "-rf", GetQMXFileFullPath(""));
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
  const pid_t child = fork();
  if (child < 0) {
    return false;
  }
  m_startSeconds = startSeconds;
  if (child > 0) {
    m_readEnd = std::move(readEnd);
    return true;
  }

  readEnd.Reset();
  orvo::DetachStandardStreams();
  const pid_t grandchild = fork();
  if (grandchild < 0) {
    return false;
  }
  if (grandchild > 0) {
    // Nothing of the caller's that an orderly exit would flush or destroy belongs to this process.
    _exit(1);
  }
  ExecuteTranscoder(writeEnd.Get(), executable);
  return false;
}

// Runs in the detached process. Returns where the launch could not even be prepared.
void HttpStream::ExecuteTranscoder(int writeEnd, const std::string& executable) {
  if (!SaveFile(GetQMXFileFullPath("monitor.pid"), std::to_string(getpid()))) {
    return;
  }
  const std::vector<std::string> arguments = CalculateArgument();
  if (arguments.empty()) {
    return;
  }
  fcntl(writeEnd, F_SETFD, 0);  // the transcoder's
  if (m_isGstreamer) {
    ExecuteGstreamerTranscoding(OutputOf(writeEnd), arguments, executable, true);
  } else {
    ExecuteTranscoding(!m_isWmv2, arguments, OutputOf(writeEnd), executable);
  }
  _exit(1);
}

int HttpStream::Read(char* buffer, int length) {
  if (!m_readEnd.IsOpen() || length < 0) {
    return -1;
  }
  pollfd wait{m_readEnd.Get(), POLLIN, 0};
  const int ready = poll(&wait, 1, kReadTimeoutSeconds * 1000);
  if (ready < 0) {
    ORVO_LOG("Select error: %d", errno);
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
    const std::string recorded = ReadFile(GetQMXFileFullPath("monitor.pid"));
    if (!recorded.empty()) {
      const int pid = static_cast<int>(std::strtol(recorded.c_str(), nullptr, 10));
      KillProcess(pid);
      TransLoading().RemoveTransPIDLock(pid);
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
  int height = 0;
  if (requested == "hd480") {
    height = 480;
  } else if (requested == "hd720") {
    height = 720;
  } else {
    return true;
  }
  const float exactWidth = ratio * static_cast<float>(height);
  const int width = static_cast<int>(10 * std::ceil(static_cast<double>(exactWidth) / 10));
  char text[64];
  snprintf(text, sizeof(text), "%dx%d", width, height);
  size = text;
  return true;
}

int HttpStream::GetTransBitRate() {
  int video = -1;
  int audio = -1;
  for (const std::string& part : StringExplode(m_metaData.GetProfileKey(), "_\n")) {
    if (!ParseRate(part, "vb", video)) {
      ParseRate(part, "ab", audio);
    }
  }
  if (video == -1 || audio == -1) {
    return -1;
  }
  return static_cast<int>((int64_t{video} + 2 * int64_t{audio}) * kBitsPerKilobit);
}

int64_t HttpStream::QMX_HTTP_PredictTransFileSize() {
  const auto duration = static_cast<float>(m_metaData.GetDuration());
  const int rate = GetTransBitRate();
  if (m_streamId.empty() || duration <= 0 || rate == -1) {
    return 0;
  }
  return static_cast<int64_t>(static_cast<float>(rate) * duration * 0.125F);
}

int HttpStream::ConvertByteRangeToTimeRange(int64_t offset) {
  const int rate = GetTransBitRate();
  // An offset beyond what 64 bits of bits can count stands nowhere in any film.
  if (m_streamKind.empty() || m_profileValue.empty() || rate <= 0 ||
      offset > std::numeric_limits<int64_t>::max() / 8 ||
      offset < std::numeric_limits<int64_t>::min() / 8) {
    return -1;
  }
  return static_cast<int>(offset * 8 / rate);
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
  if (m_profileValue.empty() || m_metaData.GetVideoResolutionX() == 0) {
    return {};
  }
  return ForceFFmpegVideoSize(StringExplode(m_profileValue, " \n"), m_isWmv2);
}

std::vector<std::string> HttpStream::CalculateGstreamerArgument() const {
  return StringExplode(m_profileValue, " ");
}

}  // namespace LibOrvoQMX
