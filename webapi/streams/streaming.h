// Opening, playing and closing streams.
#pragma once

#include <optional>
#include <string>

#include "webapi/access/ticket.h"
#include "webapi/http/answer.h"
#include "webapi/http/request.h"

namespace webapi {

// The stream id that a request names, in the newer or the older spelling ("stream_id", "id"); "",
// with the answer in `refusal`, when there is none of its form.
std::string StreamIdOf(const Request& request, Answer& refusal);

// The open stream that a request names by "format" and id, if its caller may use it. Nothing, with
// the answer in `refusal`, otherwise.
std::optional<Ticket> FindStream(const Request& request, Answer& refusal);

Answer OpenStream(const Request& request);
// Sends the media itself; answers only where there is none to send.
Answer PlayStream(const Request& request);
Answer CloseStream(const Request& request);

// Makes anew what an idle time has removed of an open stream, so that a viewer may pause as long as
// he likes.
Answer ReviveStream(const Ticket& ticket);

// Removes streams that were opened and left: without a viewer and untouched for a quarter of an
// hour, and tickets untouched for a day.
void SweepStreams();

// Closes every stream, with its ticket.
void CloseAllStreams();

}  // namespace webapi
