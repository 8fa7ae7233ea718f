// The last opened and closed streams, for the operator.
#pragma once

#include <json/value.h>

#include "webapi/access/ticket.h"

namespace webapi {

// The events of a stream.
inline constexpr char kOpened[] = "opened";
inline constexpr char kClosed[] = "closed";

// Stores an event, and removes the oldest of more than fifty. Ignores failures, and streams that no
// viewer has asked for.
void RememberStream(const Ticket& ticket, const char* event);

// The stored events, the newest first: "event", "path", "account", "kind", "time" (seconds since
// 1970).
Json::Value RecentStreams();

}  // namespace webapi
