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

// Ends the previous request's transcoder. The stream's directory stays.
void StopTranscoder(const std::string& streamId) {
  const StreamDirectory directory(kKind, streamId);
  const auto transcoder = directory.OpenMonitor();
  if (transcoder && *transcoder) {
    transcoder->AskToEnd(SIGTERM);
    LibMirevo::TransLoading().RemoveTransPIDLock(transcoder->Pid());
    directory.MonitorPid().Remove();
  }
}

// The part of the film that a request is for.
struct Part {
  int second = 0;          // the second of the film to begin at
  int64_t offset = 0;      // the byte of the announced resource for this second
  int64_t size = 0;        // the announced size; 0 for none
  bool isPartial = false;  // the request has a byte range
};

// Clients that understand "bytes 0-99/*", a range of a resource of unknown size. Others read it as
// an empty resource.
constexpr std::array kOpenSizeClients = {"Mozilla/", "VLC/"};

bool TakesOpenSize(const Request& request) {
  const std::string client = request.Header("USER_AGENT");
  return std::any_of(kOpenSizeClients.begin(), kOpenSizeClients.end(),
                     [&](const char* name) { return client.find(name) != std::string::npos; });
}

// The whole size is never announced as exact. The real size differs, and browsers would fetch the
// resource in pieces, each with a new transcoder.
std::string HeadersOf(const std::string& contentType, const Part& part) {
  if (!part.isPartial) {
    return ByteHeaders("200 OK", contentType);
  }
  return ByteHeaders("206 Partial Content", contentType) + "Content-Range: bytes " +
         std::to_string(part.offset) + "-" + std::to_string(part.size - 1) + "/*\r\n";
}

// The requested part: it begins at "start", if present, and the byte range is then converted to a
// second from there.
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
  const orvo::Process transcoder =
      StreamDirectory(kKind, streamId).OpenMonitor().value_or(orvo::Process());
  stream.Close();
  // A busy encoder finishes its picture before it handles a signal. On a slow machine this takes
  // long.
  if (!transcoder.HasEndedWithin(kPatienceMilliseconds)) {
    transcoder.Signal(SIGKILL);
  }
}

}  // namespace webapi
