// The streams that were opened and closed last, for whoever looks after the system.
#pragma once

#include <json/value.h>

#include "webapi/access/ticket.h"

namespace webapi {

// What happened to a stream.
inline constexpr char kOpened[] = "opened";
inline constexpr char kClosed[] = "closed";

// Remembers it, and forgets the oldest of more than fifty. Failing is no harm.
void RememberStream(const Ticket& ticket, const char* event);

// The newest first: "event", "path", "account", "kind", "time" (seconds since 1970).
Json::Value RecentStreams();

}  // namespace webapi
