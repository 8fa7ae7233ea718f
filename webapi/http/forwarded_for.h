// The client of a request that a reverse proxy has passed on.
#pragma once

#include <string>

namespace webapi {

// The address of the client. `peer` made the connection. If it is one of `proxies` (numeric
// addresses, separated by blanks), the client is the last address in `forwarded`
// (X-Forwarded-For) that is not a proxy: what stands before it may be the client's invention.
// Returns `peer` for any other peer, and where there is no such address.
std::string ClientBehind(const std::string& peer, const std::string& forwarded,
                         const std::string& proxies);

}  // namespace webapi
