#include "serve/endpoint.h"

#include <arpa/inet.h>
#include <netdb.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <memory>
#include <string_view>

#include "platform/network.h"
#include "util/number.h"

namespace serve {
namespace {

constexpr uint32_t kLoopbackNetwork = 127;
constexpr int64_t kMaxPort = 65535;

// An address in the form that system calls need.
struct SocketAddress {
  sockaddr_storage storage{};
  socklen_t size = sizeof(sockaddr_storage);

  sockaddr* Get() { return reinterpret_cast<sockaddr*>(&storage); }
  const sockaddr_in& Four() const { return reinterpret_cast<const sockaddr_in&>(storage); }
  const sockaddr_in6& Six() const { return reinterpret_cast<const sockaddr_in6&>(storage); }
};

std::optional<SocketAddress> Resolve(const std::string& address, int port) {
  addrinfo wanted{};
  wanted.ai_flags = AI_NUMERICHOST | AI_NUMERICSERV | AI_PASSIVE;
  wanted.ai_socktype = SOCK_STREAM;
  addrinfo* found = nullptr;
  const std::string service = std::to_string(port);
  if (getaddrinfo(address.c_str(), service.c_str(), &wanted, &found) != 0) {
    return std::nullopt;
  }
  const std::unique_ptr<addrinfo, decltype(&freeaddrinfo)> owner(found, freeaddrinfo);
  SocketAddress resolved;
  std::memcpy(&resolved.storage, found->ai_addr, found->ai_addrlen);
  resolved.size = found->ai_addrlen;
  return resolved;
}

orvo::UniqueFd NewSocket(const SocketAddress& address) {
  return orvo::UniqueFd(socket(address.storage.ss_family, SOCK_STREAM | SOCK_CLOEXEC, 0));
}

bool IsSix(const std::string& address) {
  return address.find(':') != std::string::npos;
}

}  // namespace

bool Endpoint::IsLoopback() const {
  const auto parsed = Resolve(address, port);
  return parsed &&
         (IsSix(address) ? IN6_IS_ADDR_LOOPBACK(&parsed->Six().sin6_addr) != 0
                         : ntohl(parsed->Four().sin_addr.s_addr) >> 24 == kLoopbackNetwork);
}

bool Endpoint::IsAny() const {
  return address == "0.0.0.0" || address == "::";
}

std::string Endpoint::Authority() const {
  return (IsSix(address) ? "[" + address + "]" : address) + ":" + std::to_string(port);
}

std::optional<Endpoint> ParseEndpoint(const std::string& address, int port) {
  auto parsed = Resolve(address, port);
  std::array<char, NI_MAXHOST> text{};
  if (address.empty() || !parsed ||
      getnameinfo(parsed->Get(), parsed->size, text.data(), text.size(), nullptr, 0,
                  NI_NUMERICHOST) != 0) {
    return std::nullopt;
  }
  return Endpoint{text.data(), port};
}

std::optional<Endpoint> ParseAuthority(const std::string& text) {
  const size_t colon = std::min(text.rfind(':'), text.size());
  const auto port =
      LibOrvoQMX::ParseNumber(std::string_view(text).substr(std::min(colon + 1, text.size())));
  std::string address = text.substr(0, colon);
  const bool isBracketed = address.size() > 2 && address.front() == '[' && address.back() == ']';
  if (isBracketed) {
    address = address.substr(1, address.size() - 2);
  }
  return port && *port >= 1 && *port <= kMaxPort && IsSix(address) == isBracketed
             ? ParseEndpoint(address, static_cast<int>(*port))
             : std::nullopt;
}

std::vector<Endpoint> Reachable(const Endpoint& endpoint) {
  if (!endpoint.IsAny()) {
    return {endpoint};
  }
  const bool isSix = IsSix(endpoint.address);
  std::vector<Endpoint> reachable = {{isSix ? "::1" : "127.0.0.1", endpoint.port}};
  for (const std::string& address : orvo::NetworkAddresses(isSix ? AF_INET6 : AF_INET)) {
    reachable.push_back({address, endpoint.port});
  }
  return reachable;
}

orvo::UniqueFd Listen(Endpoint& endpoint) {
  auto address = Resolve(endpoint.address, endpoint.port);
  if (!address) {
    return {};
  }
  orvo::UniqueFd listener = NewSocket(*address);
  const int yes = 1;
  setsockopt(listener.Get(), SOL_SOCKET, SO_REUSEADDR, &yes, sizeof(yes));
  setsockopt(listener.Get(), IPPROTO_IPV6, IPV6_V6ONLY, &yes, sizeof(yes));
  if (bind(listener.Get(), address->Get(), address->size) != 0 ||
      listen(listener.Get(), SOMAXCONN) != 0 ||
      getsockname(listener.Get(), address->Get(), &address->size) != 0) {
    return {};
  }
  // The port has the same position in the addresses of both families.
  endpoint.port = ntohs(address->Four().sin_port);
  return listener;
}

orvo::UniqueFd Connect(const Endpoint& endpoint) {
  auto address = Resolve(endpoint.address, endpoint.port);
  if (!address) {
    return {};
  }
  orvo::UniqueFd connection = NewSocket(*address);
  if (connect(connection.Get(), address->Get(), address->size) != 0) {
    return {};
  }
  return connection;
}

}  // namespace serve
