#include "platform/media_file.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <utility>

#include "platform/beneath.h"

namespace orvo {
namespace {

// A descriptor's place in /proc/self. It leads to the file itself, whatever its name is now.
std::string PlaceOf(int descriptor) {
  return "/proc/self/fd/" + std::to_string(descriptor);
}

// The part of `path` below `root`; "" for `root` itself and for a path that is not below it.
std::string_view BelowRoot(std::string_view root, std::string_view path) {
  if (root == "/") {
    return path.substr(path.empty() ? 0 : 1);
  }
  const bool isBelow =
      path.size() > root.size() && path.starts_with(root) && path[root.size()] == '/';
  return isBelow ? path.substr(root.size() + 1) : "";
}

UniqueFd FindIn(const std::string& root, const std::string& path) {
  UniqueFd folder(open(root.c_str(), O_PATH | O_NOFOLLOW | O_CLOEXEC));
  if (!folder.IsOpen() || path == root) {
    return folder;
  }
  const std::string_view below = BelowRoot(root, path);
  if (below.empty()) {
    errno = EXDEV;
    return {};
  }
  return FindBeneath(folder, below);
}

}  // namespace

UniqueFd OpenFound(const UniqueFd& found) {
  struct stat status {};
  if (!found.IsOpen() || fstat(found.Get(), &status) != 0) {
    return {};
  }
  if (!S_ISREG(status.st_mode)) {
    errno = EINVAL;
    return {};
  }
  return UniqueFd(open(PlaceOf(found.Get()).c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY));
}

MediaFile MediaFile::Take(UniqueFd file, const std::string& path) {
  MediaFile taken;
  if (file.IsOpen() && fstat(file.Get(), &taken.status_) == 0) {
    taken.file_ = std::move(file);
    taken.path_ = path;
  }
  return taken;
}

MediaFile MediaFile::Open(const std::string& path) {
  return Take(OpenFound(UniqueFd(open(path.c_str(), O_PATH | O_CLOEXEC))), path);
}

MediaFile MediaFile::OpenBeneath(const std::string& root, const std::string& path) {
  return Take(OpenFound(FindIn(root, path)), path);
}

std::string MediaFile::Address() const {
  return PlaceOf(file_.Get());
}

std::string MediaFile::Identity() const {
  return std::to_string(status_.st_dev) + ' ' + std::to_string(status_.st_ino);
}

}  // namespace orvo
