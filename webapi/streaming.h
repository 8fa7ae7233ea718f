// Opening, playing and closing streams.
#pragma once

#include "webapi/answer.h"
#include "webapi/request.h"
#include "webapi/ticket.h"

namespace webapi {

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
