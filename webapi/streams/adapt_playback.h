// Common code for the kinds of streams that players fetch in pieces.
#pragma once

#include <json/value.h>

#include <string>

#include "webapi/access/ticket.h"
#include "webapi/http/request.h"
#include "webapi/http/send_file.h"
#include "webapi/streams/start_times.h"

namespace webapi {

// The parameters that the addresses of a stream's pieces repeat. `address` is the path of the
// pieces.
Json::Value PieceRequest(const Ticket& ticket, const std::string& address,
                         const std::string& format);

// Adds the stream's link and its sealed ticket, so that an address with these parameters works
// without a login and on every box of the cluster.
void AddLink(const Ticket& ticket, Json::Value& parameters);

// Sends a piece that the request has waited for since `times` began. The stream's
// start, and a wait that is worth it, are remembered with the stream. Returns false if there is no
// such file.
bool SendPiece(const Request& request, const Ticket& ticket, const std::string& path,
               const std::string& contentType, StartTimes& times,
               Sender sender = Sender::kWebServer);

// Does this stream need a place in the register of transcoders? Copied video does not.
bool NeedsTranscoder(const std::string& profileValue);
// Does it, while there is no room?
bool LacksTranscoder(const std::string& profileValue);

}  // namespace webapi
