#include "serve/readiness.h"

#include <sys/socket.h>
#include <sys/un.h>

#include <cstddef>
#include <cstdlib>
#include <cstring>

#include "platform/unique_fd.h"

namespace serve {

void AnnounceReadiness(const std::string& status) {
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
  const std::string message = "READY=1\nSTATUS=" + status;
  sendto(socket.Get(), message.data(), message.size(), MSG_NOSIGNAL,
         reinterpret_cast<const sockaddr*>(&address),
         static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + std::strlen(name)));
}

}  // namespace serve
