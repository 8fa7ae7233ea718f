// The state of the machine and its streams.
#pragma once

#include "webapi/http/answer.h"
#include "webapi/http/request.h"

namespace webapi {

// The open streams, the running transcoders with their kind, pid and speed, the limits, the volumes
// and the platform.
Answer DescribeStatus();

// The state of one stream for the page: how it is played and why, and its running transcoder, or
// null.
Answer DescribeStreamState(const Request& request);

}  // namespace webapi
