// What lets the web server send further segments of a stream by itself (serve/ready_segment.lua).
//
// A pass "/tmp/Mirevo/tickets/<stream id>.pass" says: requests with this link may have the segments
// in this folder, as long as the files that decided it have these states. It is a copy of a
// decision, never a right of its own: it stops counting with any change of the ticket, of the
// accounts or of the configuration of the web server.
#pragma once

#include "webapi/access/ticket.h"
#include "webapi/http/caller.h"

namespace webapi {

// Leaves a pass for a caller who may use the stream, if the caller came by its link or needs no
// login. Accounts with media roots of their own get none, because each request must look where the
// film lies now.
void LeavePass(const Caller& caller, const Ticket& ticket);

}  // namespace webapi
