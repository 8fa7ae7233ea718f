#include "webapi/access/network_address.h"

#include <sys/socket.h>

#include <cstdlib>
#include <string_view>
#include <vector>

#include "platform/network.h"
#include "util/qmxutils.h"

namespace webapi {
namespace {

constexpr std::string_view kAnyFour = "0.0.0.0:";
constexpr std::string_view kAnySix = "[::]:";

bool IsLoopback(const std::string& authority) {
  return authority.starts_with("127.") || authority.starts_with("[::1]") ||
         authority == "localhost" || authority.starts_with("localhost:");
}

// The first of the machine's own addresses, for an endpoint that means all of them.
std::string Resolve(const std::string& endpoint) {
  if (endpoint.starts_with(kAnyFour)) {
    const auto own = orvo::NetworkAddresses(AF_INET);
    return own.empty() ? "" : own.front() + ":" + endpoint.substr(kAnyFour.size());
  }
  if (endpoint.starts_with(kAnySix)) {
    const auto own = orvo::NetworkAddresses(AF_INET6);
    return own.empty() ? "" : "[" + own.front() + "]:" + endpoint.substr(kAnySix.size());
  }
  return endpoint;
}

}  // namespace

std::string NetworkAuthority(const Request& request) {
  if (!IsLoopback(request.Authority())) {
    return request.Authority();
  }
  const char* const listening = secure_getenv("MIREVO_LISTEN");
  for (const std::string& endpoint :
       LibOrvoQMX::StringExplode(listening != nullptr ? listening : "", " ")) {
    if (std::string authority = Resolve(endpoint); !authority.empty()) {
      return authority;
    }
  }
  return "";
}

}  // namespace webapi
