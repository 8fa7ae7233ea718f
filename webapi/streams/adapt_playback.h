// What the kinds of streams that players fetch piece by piece have in common.
#pragma once

#include <json/value.h>

#include <cstdint>
#include <string>

#include "stream/liborvoqmx.h"
#include "webapi/access/ticket.h"

namespace webapi {

// What the addresses of a stream's pieces repeat of a request. `address`: where they are asked for.
Json::Value PieceRequest(const Ticket& ticket, const std::string& address,
                         const std::string& format);

// Lets an address with these parameters open the stream without a login.
void AddLink(const Ticket& ticket, Json::Value& parameters);

// Tells the monitor that somebody is still watching.
void MarkAccess(const LibOrvoQMX::QMXStream& stream);

// Says which piece is wanted, which limits how far the transcoder runs ahead. Below 10000000.
void AskFor(int64_t number, const LibOrvoQMX::QMXStream& stream);
// The piece that was asked for last; -1 before any was.
int64_t LastAskedFor(const LibOrvoQMX::QMXStream& stream);

// Is there no place for the transcoder that this stream needs?
bool LacksTranscoder(const std::string& profileValue);

}  // namespace webapi
