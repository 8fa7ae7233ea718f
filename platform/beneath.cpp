#include "platform/beneath.h"

#include <fcntl.h>
#include <linux/openat2.h>
#include <sys/stat.h>
#include <sys/syscall.h>

#include <algorithm>
#include <cerrno>
#include <string>

namespace orvo {
namespace {

constexpr long kOpenAt2 = 437;  // on every architecture
constexpr int kFindOnly = O_PATH | O_NOFOLLOW | O_CLOEXEC;

bool IsPlainPart(std::string_view part) {
  return !part.empty() && part != "." && part != ".." && part.find('\0') == part.npos;
}

bool IsPlainPath(std::string_view path) {
  for (size_t start = 0; start <= path.size();) {
    const size_t end = std::min(path.find('/', start), path.size());
    if (!IsPlainPart(path.substr(start, end - start))) {
      return false;
    }
    start = end + 1;
  }
  return true;
}

bool IsLink(const UniqueFd& file) {
  struct stat status {};
  return fstat(file.Get(), &status) == 0 && S_ISLNK(status.st_mode);
}

// A sandbox around this program may refuse calls that it does not know.
bool IsMissing(int error) {
  return error == ENOSYS || error == EPERM || error == EINVAL || error == E2BIG;
}

UniqueFd FindPart(const UniqueFd& folder, std::string_view part) {
  UniqueFd found(openat(folder.Get(), std::string(part).c_str(), kFindOnly));
  if (found.IsOpen() && IsLink(found)) {
    found.Reset();
    errno = ELOOP;
  }
  return found;
}

}  // namespace

UniqueFd WalkBeneath(const UniqueFd& root, std::string_view path) {
  UniqueFd found;
  if (!IsPlainPath(path)) {
    errno = EINVAL;
    return found;
  }
  for (size_t start = 0; start < path.size();) {
    const size_t end = std::min(path.find('/', start), path.size());
    found = FindPart(found.IsOpen() ? found : root, path.substr(start, end - start));
    if (!found.IsOpen()) {
      return found;
    }
    start = end + 1;
  }
  return found;
}

UniqueFd FindBeneath(const UniqueFd& root, std::string_view path) {
  if (!IsPlainPath(path)) {
    errno = EINVAL;
    return {};
  }
  open_how how{};
  how.flags = kFindOnly;
  how.resolve = RESOLVE_BENEATH | RESOLVE_NO_SYMLINKS | RESOLVE_NO_MAGICLINKS;
  UniqueFd found(
      static_cast<int>(syscall(kOpenAt2, root.Get(), std::string(path).c_str(), &how, sizeof how)));
  // O_NOFOLLOW with O_PATH opens a link itself if it is the last part.
  if (found.IsOpen() && IsLink(found)) {
    found.Reset();
    errno = ELOOP;
  }
  return found.IsOpen() || !IsMissing(errno) ? std::move(found) : WalkBeneath(root, path);
}

}  // namespace orvo
