// Streams whose directory has gone, while their ticket lives on.
#pragma once

#include "webapi/access/ticket.h"

namespace webapi {

// Makes a stream's directory and record where they are missing. False when there is no room.
bool ReviveDirectory(const Ticket& ticket);

}  // namespace webapi
