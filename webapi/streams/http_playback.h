// Plays a progressive stream.
#pragma once

#include <string>

#include "webapi/access/ticket.h"
#include "webapi/http/answer.h"
#include "webapi/http/request.h"

namespace webapi {

// Adds the media type and the predicted size to the answer of an opening.
Answer PrepareHttp(const Ticket& ticket, Json::Value& data);

// Sends the film from the requested place. The returned answer is for the case that there is
// nothing to send. When the request ends, for any reason, the stream is closed; its ticket stays.
Answer PlayHttp(const Request& request, const Ticket& ticket);

void CloseHttp(const std::string& streamId);

}  // namespace webapi
