#include "serve/agent.h"

#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>

#include "platform/plat.h"
#include "serve/service.h"
#include "webapi/cluster/draining.h"
#include "webapi/streams/status.h"

namespace serve {
namespace {

constexpr unsigned kWhole = 100;

bool IsServing() {
  return access(orvo::SystemPath(std::string(kStateFolder) + kAddressFile).c_str(), F_OK) == 0;
}

unsigned FreePercent() {
  const webapi::Room room = webapi::RoomForTranscoders();
  return std::max(room.limit > 0 ? kWhole * room.free / room.limit : 0, 1U);
}

}  // namespace

std::string AgentLine() {
  if (!IsServing()) {
    return "down\n";
  }
  return "up " + std::to_string(webapi::IsDraining() ? 0 : FreePercent()) + "%\n";
}

void AnswerAgentChecks(const orvo::UniqueFd& listener) {
  for (;;) {
    const orvo::UniqueFd client(
        accept4(listener.Get(), nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK));
    if (client.IsOpen()) {
      // So short a line fits into the socket, and nobody waits for a client that reads nothing.
      const std::string line = AgentLine();
      send(client.Get(), line.data(), line.size(), MSG_NOSIGNAL);
    } else if (errno != EINTR && errno != ECONNABORTED) {
      return;
    }
  }
}

}  // namespace serve
