// Decides which connections the web server gets. The service loads this library into it.
//
// The web server itself has no limit for one address, and does not look at a connection while the
// request program works. This library stands between it and some system calls:
//   - An address has a limited number of connections; a further one is reset. Proxies have no such
//     limit, because all their clients have one address.
//   - The last connections are for this machine, so that its commands always reach the service.
//   - Requests beyond the end of their queue are refused (request_places.h).
//   - The first read of a connection finds nothing. The web server then waits for the client, and
//     a web server that has waited once notices when the client leaves, at any later time.
//   - The request program starts with SIGTERM held back. The web server sends it when the client
//     leaves, and the program decides whether that ends it. Until then it waits.
//
// The program that starts the web server sets three variables; nobody inherits them further:
//   MIREVO_DOOR_EACH   connections of one address
//   MIREVO_DOOR_ALL    connections of all addresses beyond this machine and the proxies
//   MIREVO_DOOR_PROXY  numeric addresses, separated by blanks
#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <map>
#include <set>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "serve/request_places.h"

namespace {

using serve::RefuseRequest;
using serve::RequestPlaces;

// An IPv6 network of 64 bits, which one client usually has for itself, or an IPv4 address in the
// form that IPv6 has for it.
using Network = std::array<unsigned char, 16>;
constexpr size_t kNetworkBytes = 8;
constexpr std::array<unsigned char, 12> kMapped = {0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0xff, 0xff};
constexpr unsigned char kLoopback = 127;

Network NetworkOf(const in_addr& address) {
  Network network{};
  std::copy(kMapped.begin(), kMapped.end(), network.begin());
  std::memcpy(network.data() + kMapped.size(), &address, sizeof(address));
  return network;
}

bool IsMapped(const Network& network) {
  return std::equal(kMapped.begin(), kMapped.end(), network.begin());
}

Network NetworkOf(const in6_addr& address) {
  Network network{};
  std::memcpy(network.data(), &address, network.size());
  if (!IsMapped(network) && IN6_IS_ADDR_LOOPBACK(&address) == 0) {
    std::fill(network.begin() + kNetworkBytes, network.end(), static_cast<unsigned char>(0));
  }
  return network;
}

bool IsThisMachine(const Network& network) {
  const bool isIpv4 = IsMapped(network) && network[kMapped.size()] == kLoopback;
  return isIpv4 || std::memcmp(network.data(), &in6addr_loopback, network.size()) == 0;
}

// The other end of a connection. A zero network for what has no address.
Network PeerOf(int fd) {
  sockaddr_storage peer{};
  socklen_t length = sizeof(peer);
  getpeername(fd, reinterpret_cast<sockaddr*>(&peer), &length);
  if (peer.ss_family == AF_INET) {
    return NetworkOf(reinterpret_cast<const sockaddr_in&>(peer).sin_addr);
  }
  return peer.ss_family == AF_INET6
             ? NetworkOf(reinterpret_cast<const sockaddr_in6&>(peer).sin6_addr)
             : Network{};
}

std::set<Network> NetworksIn(const char* addresses) {
  std::set<Network> networks;
  std::istringstream words(addresses);
  for (std::string word; words >> word;) {
    in_addr four{};
    in6_addr six{};
    if (inet_pton(AF_INET, word.c_str(), &four) == 1) {
      networks.insert(NetworkOf(four));
    } else if (inet_pton(AF_INET6, word.c_str(), &six) == 1) {
      networks.insert(NetworkOf(six));
    }
  }
  return networks;
}

// The value of a variable, which is removed; "" without one.
std::string TakeVariable(const char* name) {
  const char* const value = getenv(name);
  std::string text = value != nullptr ? value : "";
  unsetenv(name);
  return text;
}

// 0, for no limit, if it is not a number.
int NumberIn(const std::string& text) {
  int number = 0;
  std::from_chars(text.data(), text.data() + text.size(), number);
  return number;
}

class Door {
 public:
  Door()
      : each_(NumberIn(TakeVariable("MIREVO_DOOR_EACH"))),
        all_(NumberIn(TakeVariable("MIREVO_DOOR_ALL"))),
        proxies_(NetworksIn(TakeVariable("MIREVO_DOOR_PROXY").c_str())) {
    // This library is the first in the list. The programs of the web server do without it.
    const std::string libraries = TakeVariable("LD_PRELOAD");
    if (const auto next = libraries.find(':'); next != std::string::npos) {
      setenv("LD_PRELOAD", libraries.c_str() + next + 1, 1);
    }
  }

  // Registers a new connection. Returns false if there are too many.
  bool Admit(int fd) {
    const Network network = PeerOf(fd);
    int& own = counts_[network];
    if (IsLimited(network) &&
        (IsReached(each_, own) || (!IsThisMachine(network) && IsReached(all_, strangers_)))) {
      Forget(network);
      return false;
    }
    ++own;
    strangers_ += IsStranger(network) ? 1 : 0;
    connections_.resize(std::max(connections_.size(), static_cast<size_t>(fd) + 1));
    connections_[static_cast<size_t>(fd)] = {true, true, network};
    return true;
  }

  // Was nothing read from this connection before?
  bool IsFirstRead(int fd) {
    Connection* const connection = Find(fd);
    return connection != nullptr && std::exchange(connection->isNew, false);
  }

  void Leave(int fd) {
    Connection* const connection = Find(fd);
    if (connection == nullptr) {
      return;
    }
    connection->isOpen = false;
    strangers_ -= IsStranger(connection->network) ? 1 : 0;
    --counts_[connection->network];
    Forget(connection->network);
  }

 private:
  struct Connection {
    bool isOpen = false;
    bool isNew = false;
    Network network{};
  };

  static bool IsReached(int limit, int count) { return limit > 0 && count >= limit; }
  bool IsLimited(const Network& network) const { return proxies_.count(network) == 0; }
  bool IsStranger(const Network& network) const {
    return IsLimited(network) && !IsThisMachine(network);
  }

  Connection* Find(int fd) {
    const auto index = static_cast<size_t>(fd);
    return fd >= 0 && index < connections_.size() && connections_[index].isOpen
               ? &connections_[index]
               : nullptr;
  }

  void Forget(const Network& network) {
    if (const auto found = counts_.find(network); found != counts_.end() && found->second < 1) {
      counts_.erase(found);
    }
  }

  int each_;
  int all_;
  std::set<Network> proxies_;
  std::map<Network, int> counts_;
  int strangers_ = 0;
  std::vector<Connection> connections_;  // by descriptor
};

// The web server has one thread. The door exists before its first connection.
Door& TheDoor() {
  static Door door;
  return door;
}
RequestPlaces& ThePlaces() {
  static RequestPlaces places;
  return places;
}
[[gnu::constructor]] void OpenDoor() {
  TheDoor();
  ThePlaces();
}

// Closes a connection so that nothing of it remains, here and in the kernel.
void Reset(int fd) {
  const linger now{1, 0};
  setsockopt(fd, SOL_SOCKET, SO_LINGER, &now, sizeof(now));
  syscall(SYS_close, fd);
}

}  // namespace

extern "C" {

[[gnu::visibility("default")]] int accept4(int listener, sockaddr* address, socklen_t* length,
                                           int flags) {
  for (;;) {
    const int fd = static_cast<int>(syscall(SYS_accept4, listener, address, length, flags));
    if (fd < 0 || TheDoor().Admit(fd)) {
      return fd;
    }
    Reset(fd);
  }
}

[[gnu::visibility("default")]] ssize_t read(int fd, void* buffer, size_t size) {
  if (TheDoor().IsFirstRead(fd)) {
    errno = EAGAIN;
    return -1;
  }
  return syscall(SYS_read, fd, buffer, size);
}

[[gnu::visibility("default")]] pid_t fork() {
  sigset_t leaving;
  sigset_t before;
  sigemptyset(&leaving);
  sigaddset(&leaving, SIGTERM);
  sigprocmask(SIG_BLOCK, &leaving, &before);
  const auto pid = _Fork();
  if (pid != 0) {
    sigprocmask(SIG_SETMASK, &before, nullptr);
  }
  return pid;
}

// In the new process of a request. Nothing but the refusal would come of its program.
[[gnu::visibility("default")]] int execve(const char* path, char* const* arguments,
                                          char* const* environment) noexcept {
  if (!ThePlaces().Take(environment)) {
    RefuseRequest(STDOUT_FILENO);
    _exit(0);
  }
  return static_cast<int>(syscall(SYS_execve, path, arguments, environment));
}

[[gnu::visibility("default")]] pid_t waitpid(pid_t pid, int* status, int options) {
  const auto ended = static_cast<pid_t>(syscall(SYS_wait4, pid, status, options, nullptr));
  ThePlaces().Leave(ended);
  return ended;
}

[[gnu::visibility("default")]] int close(int fd) {
  TheDoor().Leave(fd);
  return static_cast<int>(syscall(SYS_close, fd));
}

}  // extern "C"
