// Where the service listens.
#pragma once

#include <optional>
#include <string>

#include "platform/unique_fd.h"

namespace serve {

struct Endpoint {
  std::string address;  // of IPv4 or IPv6, as a number
  int port = 0;

  bool IsLoopback() const;  // only this machine reaches it
  bool IsAny() const;       // stands for every address of this machine
  // What stands in a URL: "192.0.2.7:8096", "[2001:db8::7]:8096".
  std::string Authority() const;
};

// The endpoint of an address as somebody writes it. Nothing for what is no address.
std::optional<Endpoint> ParseEndpoint(const std::string& address, int port);

// A listening socket there. Port 0 takes any free one; it is filled in. Not open, with errno set,
// when the port is taken or the address is not this machine's. An address of IPv6 takes no IPv4.
orvo::UniqueFd Listen(Endpoint& endpoint);

// A connection from this machine. Not open when there is none to be had.
orvo::UniqueFd Connect(const Endpoint& endpoint);

}  // namespace serve
