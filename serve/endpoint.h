// An address and port on which the service listens.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "platform/unique_fd.h"

namespace serve {

struct Endpoint {
  std::string address;  // a numeric IPv4 or IPv6 address
  int port = 0;

  bool IsLoopback() const;  // only this machine can reach it
  bool IsAny() const;       // means every address of this machine
  // The form in a URL: "192.0.2.7:8096", "[2001:db8::7]:8096".
  std::string Authority() const;
};

// Reads an address that a user wrote. Returns nothing if it is not an address.
std::optional<Endpoint> ParseEndpoint(const std::string& address, int port);

// Reads "ADDRESS:PORT", an IPv6 address in brackets. Returns nothing for any other text.
std::optional<Endpoint> ParseAuthority(const std::string& text);

// The addresses that programs can name to reach an endpoint: loopback and this machine's network
// addresses if it means every address, otherwise itself.
std::vector<Endpoint> Reachable(const Endpoint& endpoint);

// Opens a listening socket. Port 0 means any free port; the function fills it in. On failure the
// result is not open and errno is set: the port is in use or the address is not this machine's. An
// IPv6 socket accepts no IPv4.
orvo::UniqueFd Listen(Endpoint& endpoint);

// Connects from this machine. The result is not open on failure.
orvo::UniqueFd Connect(const Endpoint& endpoint);

}  // namespace serve
