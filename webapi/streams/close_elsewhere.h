// Closes a stream on the other boxes of a cluster.
#pragma once

#include <string>

#include "webapi/http/request.h"

namespace webapi {

// Passes a request to close a stream on to each box that the balancer knows, and returns at once.
// `sealed`: the stream's sealed ticket, so that a box that has not seen the stream refuses it
// later;
// "" if this box does not have it. Does nothing without a balancer, and for a request that another
// box has passed on.
void CloseElsewhere(const Request& request, const std::string& streamId, const std::string& sealed);

}  // namespace webapi
