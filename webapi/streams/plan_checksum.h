// Tells whether two boxes cut a film in the same way.
#pragma once

#include <cstdint>

#include "webapi/access/ticket.h"

namespace webapi {

// The checksum of a prepared stream's plan: the spans of its pieces, the film's length, and the
// sizes of what is made. Addresses are no part of it.
uint64_t PlanChecksum(const Ticket& ticket);

}  // namespace webapi
