#include "serve/readiness.h"

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <charconv>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <string_view>

#include "platform/unique_fd.h"

namespace serve {
namespace {

void Notify(const std::string& message) {
  const char* const name = secure_getenv("NOTIFY_SOCKET");
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  if (name == nullptr || *name == '\0' || std::strlen(name) >= sizeof(address.sun_path)) {
    return;
  }
  std::memcpy(address.sun_path, name, std::strlen(name));
  if (*name == '@') {
    address.sun_path[0] = '\0';  // an abstract name, without a file
  }
  const orvo::UniqueFd socket(::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0));
  sendto(socket.Get(), message.data(), message.size(), MSG_NOSIGNAL,
         reinterpret_cast<const sockaddr*>(&address),
         static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + std::strlen(name)));
}

// The number in an environment variable; 0 if there is none.
long NumberIn(const char* variable) {
  const char* const value = secure_getenv(variable);
  const std::string_view text = value != nullptr ? value : "";
  long number = 0;
  const auto parsed = std::from_chars(text.data(), text.data() + text.size(), number);
  return parsed.ec == std::errc() ? number : 0;
}

}  // namespace

void AnnounceReadiness(const std::string& status) {
  Notify("READY=1\nSTATUS=" + status);
}

void AnnounceLife() {
  Notify("WATCHDOG=1");
}

void AnnounceStop() {
  Notify("STOPPING=1");
}

std::chrono::milliseconds WatchdogTime() {
  const bool isMine = NumberIn("WATCHDOG_PID") == getpid();
  return std::chrono::milliseconds(isMine ? NumberIn("WATCHDOG_USEC") / 1000 : 0);
}

}  // namespace serve
