// What the kinds of streams that players fetch piece by piece have in common.
#pragma once

#include <json/value.h>

#include <string>

#include "webapi/access/ticket.h"

namespace webapi {

// What the addresses of a stream's pieces repeat of a request. `address`: where they are asked for.
Json::Value PieceRequest(const Ticket& ticket, const std::string& address,
                         const std::string& format);

// Lets an address with these parameters open the stream without a login.
void AddLink(const Ticket& ticket, Json::Value& parameters);

// Is there no place for the transcoder that this stream needs?
bool LacksTranscoder(const std::string& profileValue);

}  // namespace webapi
