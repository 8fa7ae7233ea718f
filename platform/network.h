// This machine's place in the network.
#pragma once

#include <string>
#include <vector>

#include "platform/export.h"

namespace orvo {

// The numeric addresses at which other machines may reach this one: those of all interfaces that
// are up, without loopback and link-local addresses. `family`: AF_INET or AF_INET6. Empty without a
// network.
ORVO_API std::vector<std::string> NetworkAddresses(int family);

}  // namespace orvo
