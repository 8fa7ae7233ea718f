// What the machine is doing.
#pragma once

#include "webapi/answer.h"

namespace webapi {

// The open streams, the running transcoders with their kind, pid and speed, the limits, the volumes
// and the platform.
Answer DescribeStatus();

}  // namespace webapi
