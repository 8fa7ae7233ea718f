// The state of the machine and its streams.
#pragma once

#include "webapi/http/answer.h"
#include "webapi/http/request.h"

namespace webapi {

// The open streams, the running transcoders with their kind, pid and speed, the limits, the volumes
// and the platform.
Answer DescribeStatus();

// The places for transcoders that encode pictures in software.
struct Room {
  unsigned limit;
  unsigned free;
  bool isFull;  // no transcode would be admitted, on hardware neither
};
Room RoomForTranscoders();

// The same with the number of open streams, for load balancers and monitors. The answer is 503,
// with the same data, if no transcode would be admitted now. With the parameter "ready" it is 503
// only if this box lets its films run out.
Answer DescribeHealth(const Request& request);

// The state of one stream for the page: how it is played and why, and its running transcoder, or
// null.
Answer DescribeStreamState(const Request& request);

}  // namespace webapi
