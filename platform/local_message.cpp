#include "platform/local_message.h"

#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>

namespace orvo {
namespace {

constexpr int kKind = SOCK_SEQPACKET | SOCK_CLOEXEC | SOCK_NONBLOCK;
constexpr int kWaiting = 64;
constexpr size_t kFileSpace = CMSG_SPACE(kMostPassedFiles * sizeof(int));

// Space for the descriptors of a message, aligned as the kernel needs it.
union FileSpace {
  cmsghdr header;
  std::array<char, kFileSpace> bytes;
};

std::optional<sockaddr_un> AddressOf(const std::string& path) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  if (path.empty() || path.size() >= sizeof address.sun_path) {
    errno = ENAMETOOLONG;
    return std::nullopt;
  }
  std::copy(path.begin(), path.end(), address.sun_path);
  return address;
}

const sockaddr* Plain(const sockaddr_un& address) {
  return reinterpret_cast<const sockaddr*>(&address);
}

// Is the other side's user this process's real or effective one, or root?
bool IsOurs(const UniqueFd& connection) {
  ucred peer{};
  socklen_t size = sizeof peer;
  const bool isKnown =
      getsockopt(connection.Get(), SOL_SOCKET, SO_PEERCRED, &peer, &size) == 0 && peer.pid > 0;
  const bool isOurs = isKnown && (peer.uid == 0 || peer.uid == getuid() || peer.uid == geteuid());
  errno = isOurs ? 0 : EACCES;
  return isOurs;
}

// Only a socket is removed.
void RemoveOld(const std::string& path) {
  struct stat status {};
  if (lstat(path.c_str(), &status) == 0 && S_ISSOCK(status.st_mode)) {
    unlink(path.c_str());
  }
}

std::vector<UniqueFd> TakeFiles(msghdr& message) {
  std::vector<UniqueFd> files;
  for (cmsghdr* part = CMSG_FIRSTHDR(&message); part != nullptr;
       part = CMSG_NXTHDR(&message, part)) {
    if (part->cmsg_level != SOL_SOCKET || part->cmsg_type != SCM_RIGHTS) {
      continue;
    }
    const size_t count = (part->cmsg_len - CMSG_LEN(0)) / sizeof(int);
    for (size_t i = 0; i < count; ++i) {
      int file = -1;
      memcpy(&file, CMSG_DATA(part) + i * sizeof file, sizeof file);
      files.emplace_back(file);
    }
  }
  return files;
}

void PutFiles(const std::vector<int>& files, FileSpace& space, msghdr& message) {
  const size_t size = files.size() * sizeof(int);
  message.msg_control = space.bytes.data();
  message.msg_controllen = CMSG_SPACE(size);
  cmsghdr* const part = CMSG_FIRSTHDR(&message);
  part->cmsg_level = SOL_SOCKET;
  part->cmsg_type = SCM_RIGHTS;
  part->cmsg_len = CMSG_LEN(size);
  memcpy(CMSG_DATA(part), files.data(), size);
}

}  // namespace

UniqueFd ListenLocally(const std::string& path) {
  const auto address = AddressOf(path);
  UniqueFd listener(address ? socket(AF_UNIX, kKind, 0) : -1);
  if (!listener.IsOpen()) {
    return {};
  }
  RemoveOld(path);
  const bool listens = bind(listener.Get(), Plain(*address), sizeof *address) == 0 &&
                       chmod(path.c_str(), S_IRUSR | S_IWUSR) == 0 &&
                       listen(listener.Get(), kWaiting) == 0;
  return listens ? std::move(listener) : UniqueFd();
}

UniqueFd AcceptLocally(const UniqueFd& listener) {
  UniqueFd connection(accept4(listener.Get(), nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK));
  return connection.IsOpen() && IsOurs(connection) ? std::move(connection) : UniqueFd();
}

UniqueFd ConnectLocally(const std::string& path) {
  const auto address = AddressOf(path);
  UniqueFd connection(address ? socket(AF_UNIX, kKind, 0) : -1);
  const bool isConnected =
      connection.IsOpen() && connect(connection.Get(), Plain(*address), sizeof *address) == 0;
  return isConnected && IsOurs(connection) ? std::move(connection) : UniqueFd();
}

bool SendLocally(const UniqueFd& connection, std::string_view text, const std::vector<int>& files) {
  if (text.empty() || text.size() > kLongestMessage || files.size() > kMostPassedFiles) {
    errno = EMSGSIZE;
    return false;
  }
  iovec bytes{const_cast<char*>(text.data()), text.size()};
  msghdr message{};
  message.msg_iov = &bytes;
  message.msg_iovlen = 1;
  FileSpace space{};
  if (!files.empty()) {
    PutFiles(files, space, message);
  }
  return sendmsg(connection.Get(), &message, MSG_NOSIGNAL) == static_cast<ssize_t>(text.size());
}

std::optional<LocalMessage> ReceiveLocally(const UniqueFd& connection) {
  LocalMessage received;
  received.text.resize(kLongestMessage);
  iovec bytes{received.text.data(), received.text.size()};
  msghdr message{};
  message.msg_iov = &bytes;
  message.msg_iovlen = 1;
  FileSpace space{};
  message.msg_control = space.bytes.data();
  message.msg_controllen = space.bytes.size();
  const ssize_t count = recvmsg(connection.Get(), &message, MSG_CMSG_CLOEXEC);
  received.files = count >= 0 ? TakeFiles(message) : std::vector<UniqueFd>();
  if (count <= 0 || (message.msg_flags & (MSG_TRUNC | MSG_CTRUNC)) != 0) {
    return std::nullopt;
  }
  received.text.resize(static_cast<size_t>(count));
  return received;
}

}  // namespace orvo
