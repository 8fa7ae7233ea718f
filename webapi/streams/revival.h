// Restores streams that still have a ticket but no directory.
#pragma once

#include "webapi/access/ticket.h"

namespace webapi {

// Makes a stream's directory and record if they are missing. Returns false if there is no space.
bool ReviveDirectory(const Ticket& ticket);

}  // namespace webapi
