#include "webapi/streams/http_playback.h"

#include <unistd.h>

#include <algorithm>
#include <array>
#include <csignal>
#include <optional>

#include "platform/io.h"
#include "platform/plat.h"
#include "platform/process.h"
#include "policy/trans_loading.h"
#include "state/stream_directory.h"
#include "stream/http_stream.h"
#include "util/qmxutils.h"
#include "webapi/access/ticket.h"
#include "webapi/choice/profiles.h"
#include "webapi/streams/byte_playback.h"

namespace webapi {
namespace {

using LibOrvoQMX::HttpStream;
using LibOrvoQMX::StreamDirectory;

constexpr char kKind[] = "HTTP";
constexpr int kPatienceMilliseconds = 1000;

// Ends the transcoder of the request before; the stream's directory stays.
void StopTranscoder(const std::string& streamId) {
  const StreamDirectory directory(kKind, streamId);
  const pid_t pid = directory.Monitor().value_or(-1);
  if (pid > 0) {
    LibOrvoQMX::KillProcess(pid);
    LibMirevo::TransLoading().RemoveTransPIDLock(pid);
    directory.MonitorPid().Remove();
  }
}

// Which part of the film a request is for.
struct Part {
  int second = 0;          // where the film begins
  int64_t offset = 0;      // the byte of the announced resource that this second stands for
  int64_t size = 0;        // the size that is announced; 0 for none
  bool isPartial = false;  // the answer to a byte range
};

// Clients that take "bytes 0-99/*", a range of something of unknown size, for what it is. Others
// read it as an empty resource.
constexpr std::array kOpenSizeClients = {"Mozilla/", "VLC/"};

bool TakesOpenSize(const Request& request) {
  const std::string client = request.Header("USER_AGENT");
  return std::any_of(kOpenSizeClients.begin(), kOpenSizeClients.end(),
                     [&](const char* name) { return client.find(name) != std::string::npos; });
}

// The whole size is never announced as exact: the real one differs, and browsers would fetch the
// resource in pieces, each of which would be a new transcoder.
std::string HeadersOf(const std::string& contentType, const Part& part) {
  if (!part.isPartial) {
    return ByteHeaders("200 OK", contentType);
  }
  return ByteHeaders("206 Partial Content", contentType) + "Content-Range: bytes " +
         std::to_string(part.offset) + "-" + std::to_string(part.size - 1) + "/*\r\n";
}

// The part that a request asks for: from its start, if any, and from there the second that its byte
// range stands for.
std::optional<Part> FindPart(const Request& request, HttpStream& stream, unsigned duration,
                             Answer& refusal) {
  const auto start = StartSecond(request, duration, refusal);
  if (!start) {
    return std::nullopt;
  }
  Part part;
  part.second = *start;
  const auto offset = request.RangeStart();
  const int ahead = stream.ConvertByteRangeToTimeRange(offset.value_or(0));
  if (!offset || ahead < 0) {
    return part;
  }
  const int64_t bytesPerSecond = stream.GetTransBitRate() / 8;
  part.size = stream.QMX_HTTP_PredictTransFileSize() - part.second * bytesPerSecond;
  if (*offset > 0 && *offset >= part.size) {
    refusal = Answer::Failure(kRangeNotSatisfiable);
    return std::nullopt;
  }
  part.offset = *offset;
  part.second += ahead;
  part.isPartial = part.size > 0 && (*offset > 0 || TakesOpenSize(request));
  return part;
}

}  // namespace

Answer PrepareHttp(const Ticket& ticket, Json::Value& data) {
  HttpStream stream(ticket.StreamId());
  data["content_type"] = ContentTypeOf(ProfileOf(ticket));
  data["size"] = static_cast<Json::Int64>(stream.QMX_HTTP_PredictTransFileSize());
  return Answer::Sent();
}

Answer PlayHttp(const Request& request, const Ticket& ticket) {
  HttpStream stream(ticket.StreamId());
  Answer refusal = Answer::Failure(kInternal);
  const auto part = FindPart(request, stream, ticket.Duration(), refusal);
  if (!part) {
    return refusal;
  }
  const std::string headers = HeadersOf(ContentTypeOf(ProfileOf(ticket)), *part);
  if (request.Method() == "HEAD") {
    orvo::WriteAll(STDOUT_FILENO, headers + "\r\n");
    return Answer::Sent();
  }
  return PlayBytes(
      {stream, stream.GetTranscoder(), part->second, headers, StopTranscoder, CloseHttp});
}

void CloseHttp(const std::string& streamId) {
  HttpStream stream(streamId);
  const auto transcoder =
      orvo::Process::Open(StreamDirectory(kKind, streamId).Monitor().value_or(-1));
  stream.Close();
  // A busy encoder finishes its picture before it looks at a signal. On a slow machine that is
  // long.
  if (!transcoder.HasEndedWithin(kPatienceMilliseconds)) {
    transcoder.Signal(SIGKILL);
  }
}

}  // namespace webapi
