// The state of the machine and its streams.
#pragma once

#include "webapi/http/answer.h"
#include "webapi/http/request.h"

namespace webapi {

// The open streams, the running transcoders with their kind, pid and speed, the limits, the volumes
// and the platform.
Answer DescribeStatus();

// The room for further transcoders, for load balancers and monitors. The answer is 503, with the
// same data, if no transcode would be admitted now.
Answer DescribeHealth(const Request& request);

// The state of one stream for the page: how it is played and why, and its running transcoder, or
// null.
Answer DescribeStreamState(const Request& request);

}  // namespace webapi
