// Playing a film's file as it lies on the disk.
#pragma once

#include <string>

#include "metadata/video_metadata.h"
#include "webapi/access/ticket.h"
#include "webapi/http/answer.h"
#include "webapi/http/request.h"

namespace webapi {

// What tickets call this kind. The library knows none of it: there is nothing to transcode.
inline constexpr char kDirectKind[] = "DIRECT";
// The profile of such a stream.
inline constexpr char kDirectProfile[] = "direct";

// Makes the directory and the record of such a stream: `streamId`, or a new one for "". Its id; ""
// when there is no room for them.
std::string InitDirect(const LibOrvoQMX::VideoMetaData& film, const std::string& streamId);

// Adds to the answer of an opening the media type and the file's size.
Answer PrepareDirect(const Ticket& ticket, Json::Value& data);

// Sends the file, or the bytes of it that the request asks for.
Answer PlayDirect(const Request& request, const Ticket& ticket);

void CloseDirect(const std::string& streamId);

// The second of the film that the newest request began at, about: by its byte.
double DirectPosition(const Ticket& ticket);

}  // namespace webapi
