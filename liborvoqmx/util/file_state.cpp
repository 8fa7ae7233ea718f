#include "util/file_state.h"

#include <sys/stat.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdio>
#include <ctime>

namespace orvo {
namespace {

constexpr time_t kCoarsestTick = 2;  // seconds, on FAT

std::string TextOf(const struct stat& status) {
  std::array<char, 160> text{};
  snprintf(text.data(), text.size(), "%jd %jd.%09ld %jd.%09ld %ju %ju",
           static_cast<intmax_t>(status.st_size), static_cast<intmax_t>(status.st_mtim.tv_sec),
           status.st_mtim.tv_nsec, static_cast<intmax_t>(status.st_ctim.tv_sec),
           status.st_ctim.tv_nsec, static_cast<uintmax_t>(status.st_ino),
           static_cast<uintmax_t>(status.st_dev));
  return text.data();
}

std::optional<FileState> StateOf(const std::string& path, mode_t type) {
  struct stat status {};
  if (stat(path.c_str(), &status) != 0 || (status.st_mode & S_IFMT) != type) {
    return std::nullopt;
  }
  const time_t touched = std::max(status.st_mtim.tv_sec, status.st_ctim.tv_sec);
  return FileState{TextOf(status), time(nullptr) - touched > kCoarsestTick};
}

}  // namespace

std::optional<FileState> FileState::Of(const std::string& path) {
  return StateOf(path, S_IFREG);
}

std::optional<FileState> FileState::OfFolder(const std::string& path) {
  return StateOf(path, S_IFDIR);
}

}  // namespace orvo
