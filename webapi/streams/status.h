// What the machine is doing.
#pragma once

#include "webapi/http/answer.h"
#include "webapi/http/request.h"

namespace webapi {

// The open streams, the running transcoders with their kind, pid and speed, the limits, the volumes
// and the platform.
Answer DescribeStatus();

// One stream as the page shows it beside the film: what happens to it and why, and the transcoder
// that runs for it, null without one.
Answer DescribeStreamState(const Request& request);

}  // namespace webapi
