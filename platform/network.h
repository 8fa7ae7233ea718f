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

// Is this the numeric address of a machine in a home or an office: one of a private network (RFC
// 1918, RFC 4193), a link-local or a loopback address? False for all other texts.
ORVO_API bool IsPrivateAddress(const std::string& address);

}  // namespace orvo
