// What players tell of themselves with their requests, by Common Media Client Data (CTA-5004).
#pragma once

#include <json/value.h>

#include "webapi/access/ticket.h"
#include "webapi/http/request.h"

namespace webapi {

// Keeps the report of a player that ran out of film; others are not worth a write.
void KeepClientReport(const Request& request, const Ticket& ticket);

// The last such report: "starved_at" (seconds since 1970), "buffer" (milliseconds) and "throughput"
// (kbit/s); -1 for what the player did not say. Null if there is none.
Json::Value ClientReportOf(const Ticket& ticket);

}  // namespace webapi
