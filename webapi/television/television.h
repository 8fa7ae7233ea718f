// What televisions and the media server that speaks to them ask of the service (docs/dlna.md).
#pragma once

#include <string>

#include "webapi/http/answer.h"
#include "webapi/http/request.h"

namespace webapi {

// The path of these requests.
inline constexpr char kTelevisionProgram[] = "/dlna";

// The path of the addresses of an object's forms (object_id.h).
std::string TelevisionAddress(const std::string& id);

// Answers "/dlna/browse" to the media server, which shows its word as a bearer token, and sends the
// forms of films ("/dlna/ID/film.mkv", resources.h) to machines of the local network.
Answer ServeTelevision(Request request);

}  // namespace webapi
