#include "platform/network.h"

#include <arpa/inet.h>
#include <ifaddrs.h>
#include <net/if.h>
#include <netdb.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <algorithm>
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

struct Network {
  uint32_t prefix;
  int bits;
};
constexpr std::array kPrivateNetworks = {Network{0x7f000000, 8}, Network{0x0a000000, 8},
                                         Network{0xac100000, 12}, Network{0xc0a80000, 16},
                                         Network{0xa9fe0000, 16}};

bool IsPrivate(const in_addr& address) {
  return std::any_of(kPrivateNetworks.begin(), kPrivateNetworks.end(), [&](const Network& network) {
    return (ntohl(address.s_addr) ^ network.prefix) >> (32 - network.bits) == 0;
  });
}

bool IsPrivate(const in6_addr& address) {
  constexpr uint8_t kUniqueLocal = 0xfc;  // fc00::/7
  if (IN6_IS_ADDR_V4MAPPED(&address) != 0) {
    in_addr four{};
    std::copy_n(address.s6_addr + 12, sizeof four, reinterpret_cast<uint8_t*>(&four));
    return IsPrivate(four);
  }
  return IN6_IS_ADDR_LOOPBACK(&address) != 0 || IN6_IS_ADDR_LINKLOCAL(&address) != 0 ||
         (address.s6_addr[0] & 0xfe) == kUniqueLocal;
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

bool IsPrivateAddress(const std::string& address) {
  in_addr four{};
  in6_addr six{};
  // A link-local address may name its interface.
  const std::string plain = address.substr(0, address.find('%'));
  return (inet_pton(AF_INET, plain.c_str(), &four) == 1 && IsPrivate(four)) ||
         (inet_pton(AF_INET6, plain.c_str(), &six) == 1 && IsPrivate(six));
}

}  // namespace orvo
