// Plays a Smooth Streaming presentation.
#pragma once

#include <string>

#include "webapi/access/ticket.h"
#include "webapi/http/answer.h"
#include "webapi/http/request.h"

namespace webapi {

// Writes the manifest of a newly opened stream. A failure leaves no directory.
Answer PrepareSmooth(const Ticket& ticket, Json::Value& data);

// Sends the manifest, or the fragment "fragment_id" as soon as it is complete.
Answer PlaySmooth(const Request& request, const Ticket& ticket);

// Starts the transcoder for a player that will begin at this second of the film.
void StartSmooth(const Ticket& ticket, double second, Json::Value& data);

void CloseSmooth(const std::string& streamId);

}  // namespace webapi
