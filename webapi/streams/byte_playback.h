// What the kinds of streams that are one endless response have in common.
#pragma once

#include <optional>
#include <string>

#include "stream/direct_stream.h"
#include "webapi/access/ticket.h"
#include "webapi/choice/profiles.h"
#include "webapi/http/answer.h"
#include "webapi/http/request.h"

namespace webapi {

// How one request plays such a stream.
struct BytePlayback {
  LibOrvoQMX::DirectStream& stream;
  std::string executable;  // the transcoder
  int second = 0;          // of the film, where to begin
  std::string headers;     // of the answer, when there is something to send
  // Ends the transcoder of the request before. The stream's directory stays.
  void (*stop)(const std::string& streamId);
  void (*close)(const std::string& streamId);
};

// Sends the film until it or the client ends; answers only where there is nothing to send. A
// request for the same stream that plays already gives way. The stream is closed when this request
// ends, however it ends; its ticket stays.
Answer PlayBytes(const BytePlayback& playback);

// The second of the film that "start" names; 0 without it. Nothing, and a refusal, for what is no
// second of the film.
std::optional<int> StartSecond(const Request& request, unsigned duration, Answer& refusal);

// The profile that the stream was opened with.
Profile ProfileOf(const Ticket& ticket);

// The head of such an answer, up to and without its end. `status`: with its word.
std::string ByteHeaders(const std::string& status, const std::string& contentType);

}  // namespace webapi
