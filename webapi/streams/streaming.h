// Opens, plays and closes streams.
#pragma once

#include <optional>
#include <string>

#include "webapi/access/ticket.h"
#include "webapi/http/answer.h"
#include "webapi/http/request.h"

namespace webapi {

// The request's stream id, in the newer or the older spelling ("stream_id", "id"). If there is no
// valid id, returns "" and sets `refusal` to the answer.
std::string StreamIdOf(const Request& request, Answer& refusal);

// The open stream that a request names by "format" and id. If there is none or its caller may not
// use it, returns nothing and sets `refusal` to the answer.
std::optional<Ticket> FindStream(const Request& request, Answer& refusal);

// Makes the stream of a ticket from an address (access/sealed_ticket.h), and replaces the ticket by
// the stream's own. It counts among the streams of the request's client. Leaves other tickets as
// they are. If there is none or the stream cannot be made as its players know it, returns false and
// sets `refusal` to the answer.
bool MakeKnown(const Request& request, std::optional<Ticket>& ticket, Answer& refusal);

Answer OpenStream(const Request& request);
// Sends the media. The returned answer is for the case that there is nothing to send.
Answer PlayStream(const Request& request);
Answer CloseStream(const Request& request);

// Restores the parts of an open stream that were removed while it was idle, so a viewer may pause
// for any time.
Answer ReviveStream(const Ticket& ticket);

// Starts a detached process that removes abandoned streams: those without a viewer and without a
// request for a quarter of an hour. It removes tickets that no request used for a day. Does so once
// a minute, however often it is called.
void StartSweep();

// The number of streams that have a directory.
size_t CountStreams();

// Closes every stream, with its ticket.
void CloseAllStreams();

}  // namespace webapi
