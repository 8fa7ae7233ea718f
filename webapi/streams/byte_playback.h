// Common code for the kinds of streams that are one long response.
#pragma once

#include <optional>
#include <string>

#include "stream/direct_stream.h"
#include "webapi/access/ticket.h"
#include "webapi/choice/profiles.h"
#include "webapi/http/answer.h"
#include "webapi/http/request.h"

namespace webapi {

// The parameters with which one request plays such a stream.
struct BytePlayback {
  LibOrvoQMX::DirectStream& stream;
  std::string executable;  // the transcoder
  int second = 0;          // the second of the film to begin at
  std::string headers;     // the headers of a successful answer
  // Ends the previous request's transcoder. The stream's directory stays.
  void (*stop)(const std::string& streamId);
  void (*close)(const std::string& streamId);
};

// Sends the film until it or the client ends. The returned answer is for the case that there is
// nothing to send. An older request that plays the same stream ends. When this request ends, for
// any reason, the stream is closed; its ticket stays.
Answer PlayBytes(const BytePlayback& playback);

// The second of the film in "start"; 0 if it is absent. If it is not a second of the film, returns
// nothing and sets the refusal.
std::optional<int> StartSecond(const Request& request, unsigned duration, Answer& refusal);

// The profile that the stream was opened with.
Profile ProfileOf(const Ticket& ticket);

// The headers of such an answer, without the final empty line. `status` includes its text.
std::string ByteHeaders(const std::string& status, const std::string& contentType);

}  // namespace webapi
