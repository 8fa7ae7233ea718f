// Playing a progressive stream.
#pragma once

#include <string>

#include "webapi/access/ticket.h"
#include "webapi/http/answer.h"
#include "webapi/http/request.h"

namespace webapi {

// Adds to the answer of an opening what players may want to know: the media type and the predicted
// size.
Answer PrepareHttp(const Ticket& ticket, Json::Value& data);

// Sends the film from where the request wants it; answers only where there is nothing to send. The
// stream is closed when the request ends, however it ends; its ticket stays.
Answer PlayHttp(const Request& request, const Ticket& ticket);

void CloseHttp(const std::string& streamId);

}  // namespace webapi
