#include "util/shared_state.h"

#include <sys/stat.h>

#include <cerrno>

#include "platform/plat.h"

namespace orvo {
namespace {

constexpr char kFolder[] = "/var/packages/Mirevo/etc/";
constexpr char kShared[] = "/var/packages/Mirevo/etc/shared";

}  // namespace

bool IsStateShared() {
  struct stat status {};
  return lstat(SystemPath(kShared).c_str(), &status) == 0 || errno != ENOENT;
}

std::string SharedStatePath(const std::string& name) {
  return SystemPath(IsStateShared() ? std::string(kShared) + "/" : kFolder) + name;
}

}  // namespace orvo
