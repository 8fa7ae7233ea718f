// Plays a film's file without conversion.
#pragma once

#include <string>

#include "metadata/video_metadata.h"
#include "webapi/access/ticket.h"
#include "webapi/http/answer.h"
#include "webapi/http/request.h"

namespace webapi {

// The name of this kind in tickets. The library does not know it, because there is nothing to
// transcode.
inline constexpr char kDirectKind[] = "DIRECT";
// The profile of such a stream.
inline constexpr char kDirectProfile[] = "direct";

// Makes the directory and the record of such a stream, with the id `streamId` or, for "", a new
// one. Returns the id; "" if there is no space.
std::string InitDirect(const LibOrvoQMX::VideoMetaData& film, const std::string& streamId);

// Adds the media type and the file's size to the answer of an opening.
Answer PrepareDirect(const Ticket& ticket, Json::Value& data);

// Sends the file, or the requested bytes of it.
Answer PlayDirect(const Request& request, const Ticket& ticket);

void CloseDirect(const std::string& streamId);

// The approximate second of the film at which the newest request began, calculated from its byte.
double DirectPosition(const Ticket& ticket);

}  // namespace webapi
