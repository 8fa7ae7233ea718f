#include "webapi/streams/webm_playback.h"

#include <unistd.h>

#include "platform/io.h"
#include "platform/plat.h"
#include "stream/webm_stream.h"
#include "webapi/choice/profiles.h"
#include "webapi/streams/byte_playback.h"

namespace webapi {
namespace {

using LibOrvoQMX::WebMStream;

constexpr char kTranscoder[] = "/var/packages/Mirevo/target/bin/ffmpeg";

// Ends the previous request's monitor and its transcoder, which frees the room in the register.
void StopMonitor(const std::string& streamId) {
  WebMStream(streamId).SaveMonitorPid(0, true);
}

}  // namespace

Answer PrepareWebm(const Ticket& ticket, Json::Value& data) {
  data["content_type"] = ContentTypeOf(ProfileOf(ticket));
  return Answer::Sent();
}

Answer PlayWebm(const Request& request, const Ticket& ticket) {
  Answer refusal = Answer::Failure(kInternal);
  const auto start = StartSecond(request, ticket.Duration(), refusal);
  if (!start) {
    return refusal;
  }
  const std::string headers = ByteHeaders("200 OK", ContentTypeOf(ProfileOf(ticket)));
  if (request.Method() == "HEAD") {
    orvo::WriteAll(STDOUT_FILENO, headers + "\r\n");
    return Answer::Sent();
  }
  WebMStream stream(ticket.StreamId());
  return PlayBytes(
      {stream, orvo::SystemPath(kTranscoder), *start, headers, StopMonitor, CloseWebm});
}

void CloseWebm(const std::string& streamId) {
  WebMStream stream(streamId);
  // Waits for the transcoder's end, so none is left when the answer is sent.
  stream.SaveMonitorPid(0, true);
  stream.Close();
}

}  // namespace webapi
