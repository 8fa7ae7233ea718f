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

bool StartsWith(const std::string& text, std::string_view beginning) {
  return text.compare(0, beginning.size(), beginning) == 0;
}

bool IsLoopback(const std::string& authority) {
  return StartsWith(authority, "127.") || StartsWith(authority, "[::1]") ||
         StartsWith(authority, "localhost");
}

// The first of the machine's own addresses, for an endpoint that means all of them.
std::string Resolve(const std::string& endpoint) {
  if (StartsWith(endpoint, kAnyFour)) {
    const auto own = orvo::NetworkAddresses(AF_INET);
    return own.empty() ? "" : own.front() + ":" + endpoint.substr(kAnyFour.size());
  }
  if (StartsWith(endpoint, kAnySix)) {
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
