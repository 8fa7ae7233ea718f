// Tells a load balancer how much this box can take (the agent-check of HAProxy).
#pragma once

#include <string>

#include "platform/unique_fd.h"

namespace serve {

// The line that tells it: "up N%" with the free places for transcoders, "up 0%" while the box lets
// its films run out, "down" without a running service. A full box has 1 %, because it still sends
// what it has.
std::string AgentLine();

// Sends that line to each client of this listening socket and closes the connection. Returns only
// if no more clients can be accepted, with errno set.
void AnswerAgentChecks(const orvo::UniqueFd& listener);

}  // namespace serve
