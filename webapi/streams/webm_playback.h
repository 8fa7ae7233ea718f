// Plays a live WebM stream.
#pragma once

#include <string>

#include "webapi/access/ticket.h"
#include "webapi/http/answer.h"
#include "webapi/http/request.h"

namespace webapi {

// Adds the media type to the answer of an opening.
Answer PrepareWebm(const Ticket& ticket, Json::Value& data);

// Sends the film from the second "start" on. The returned answer is for the case that there is
// nothing to send. When the request ends, for any reason, the stream is closed; its ticket stays.
Answer PlayWebm(const Request& request, const Ticket& ticket);

void CloseWebm(const std::string& streamId);

}  // namespace webapi
