#include "platform/network.h"

#include <ifaddrs.h>
#include <net/if.h>
#include <netdb.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <array>
#include <memory>

namespace orvo {
namespace {

bool IsLinkLocal(const sockaddr& address) {
  constexpr uint32_t kLinkLocalNetwork = 0xa9fe;  // 169.254.0.0/16
  if (address.sa_family == AF_INET6) {
    const auto& six = reinterpret_cast<const sockaddr_in6&>(address);
    return IN6_IS_ADDR_LINKLOCAL(&six.sin6_addr) != 0;
  }
  const auto& four = reinterpret_cast<const sockaddr_in&>(address);
  return ntohl(four.sin_addr.s_addr) >> 16 == kLinkLocalNetwork;
}

bool IsReachable(const ifaddrs& entry, int family) {
  return entry.ifa_addr != nullptr && entry.ifa_addr->sa_family == family &&
         (entry.ifa_flags & IFF_UP) != 0 && (entry.ifa_flags & IFF_LOOPBACK) == 0 &&
         !IsLinkLocal(*entry.ifa_addr);
}

std::string TextOf(const sockaddr& address) {
  std::array<char, NI_MAXHOST> text{};
  const socklen_t size = address.sa_family == AF_INET6 ? sizeof(sockaddr_in6) : sizeof(sockaddr_in);
  const int failure =
      getnameinfo(&address, size, text.data(), text.size(), nullptr, 0, NI_NUMERICHOST);
  return failure == 0 ? text.data() : "";
}

}  // namespace

std::vector<std::string> NetworkAddresses(int family) {
  ifaddrs* all = nullptr;
  if (getifaddrs(&all) != 0) {
    return {};
  }
  const std::unique_ptr<ifaddrs, decltype(&freeifaddrs)> owner(all, freeifaddrs);
  std::vector<std::string> addresses;
  for (const ifaddrs* entry = all; entry != nullptr; entry = entry->ifa_next) {
    if (IsReachable(*entry, family)) {
      addresses.push_back(TextOf(*entry->ifa_addr));
    }
  }
  return addresses;
}

}  // namespace orvo
