// Plays an HTTP Live Streaming presentation.
#pragma once

#include <string>

#include "webapi/access/ticket.h"
#include "webapi/http/answer.h"
#include "webapi/http/request.h"

namespace webapi {

// Writes the playlists of a newly opened stream. A failure leaves no directory.
Answer PrepareHls(const Ticket& ticket, Json::Value& data);

// Sends a playlist, or the segment "fragment_id" as soon as it is complete.
Answer PlayHls(const Request& request, const Ticket& ticket);

// Starts the transcoder for a player that will begin at this second of the film.
void StartHls(const Ticket& ticket, double second, Json::Value& data);

void CloseHls(const std::string& streamId);

}  // namespace webapi
