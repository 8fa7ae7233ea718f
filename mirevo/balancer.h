// The configuration of HAProxy 2.6 for several boxes.
#pragma once

#include <optional>
#include <string>
#include <vector>

namespace mirevo {

// One box, as HAProxy reaches it.
struct Box {
  std::string host;  // a name or an address, in brackets for IPv6
  int port;
};

// Reads "HOST" or "HOST:PORT". Returns nothing for any other text.
std::optional<Box> ParseBox(const std::string& text);

// The whole configuration. `listen` is where players come (HOST:PORT, "*" for all addresses),
// `socket` the path of HAProxy's administration socket, and `agentPort` where the agent of each box
// listens. Takes at least one box.
std::string BalancerConfiguration(const std::vector<Box>& boxes, const std::string& listen,
                                  const std::string& socket, int agentPort);

}  // namespace mirevo
