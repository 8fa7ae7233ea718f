#include "util/state_roots.h"

#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>

#include "platform/plat.h"

namespace orvo {
namespace {

constexpr std::array kRoots = {
    "/tmp/Mirevo",
    "/tmp/Mirevo/HLS",
    "/tmp/Mirevo/HTTP",
    "/tmp/Mirevo/SS",
    "/tmp/Mirevo/WEBM",
    "/tmp/Mirevo/CMAF",
    "/tmp/Mirevo/DIRECT",
    "/tmp/Mirevo/tickets",
    "/run/mirevo",
    "/var/packages/Mirevo/cache",
    "/var/packages/Mirevo/etc",
};

bool IsAbsent(const std::string& path) {
  struct stat status {};
  return lstat(path.c_str(), &status) != 0 && (errno == ENOENT || errno == ENOTDIR);
}

}  // namespace

bool IsSafeFolder(const std::string& path) {
  struct stat status {};
  return lstat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode) &&
         (status.st_uid == geteuid() || status.st_uid == 0) &&
         (status.st_mode & (S_IWGRP | S_IWOTH)) == 0;
}

std::string StateProblem() {
  for (const char* const root : kRoots) {
    const std::string path = SystemPath(root);
    if (!IsAbsent(path) && !IsSafeFolder(path)) {
      return path + " belongs to another user, can be changed by one or is a link. Remove it.";
    }
  }
  return "";
}

}  // namespace orvo
