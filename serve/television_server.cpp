#include "serve/television_server.h"

#include <algorithm>
#include <iostream>

#include "platform/plat.h"
#include "settings/televisions.h"

namespace serve {
namespace {

constexpr char kProgram[] = "/var/packages/Mirevo/target/bin/orvodlnad";

// Why televisions cannot reach the service; "" if they can. Who names the interfaces may name
// loopback.
std::string ObstacleOf(const WebServer& server, bool namesInterfaces) {
  if (!server.certificate.empty()) {
    return "they do not know the certificate; start the service without --certificate";
  }
  const bool isReachable =
      namesInterfaces || std::any_of(server.endpoints.begin(), server.endpoints.end(),
                                     [](const Endpoint& one) { return !one.IsLoopback(); });
  return isReachable ? "" : "only this machine reaches the service; start it with --listen 0.0.0.0";
}

}  // namespace

std::vector<std::string> TelevisionCommand(const WebServer& server,
                                           const std::vector<std::string>& interfaces) {
  if (!settings::ReadTelevisions().areLetIn) {
    return {};
  }
  if (const auto obstacle = ObstacleOf(server, !interfaces.empty()); !obstacle.empty()) {
    std::cerr << "televisions see nothing: " << obstacle << "\n";
    return {};
  }
  const std::string local = Reachable(server.endpoints.front()).front().Authority();
  std::vector<std::string> command = {orvo::SystemPath(kProgram), "--service", "http://" + local};
  for (const Endpoint& endpoint : server.endpoints) {
    command.insert(command.end(), {"--listen", endpoint.Authority()});
  }
  for (const std::string& name : interfaces) {
    command.insert(command.end(), {"--interface", name});
  }
  return command;
}

}  // namespace serve
