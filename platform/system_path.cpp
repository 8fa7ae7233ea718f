#include <unistd.h>

#include <cstdlib>

#include "platform/plat.h"

namespace orvo {

std::string SystemPath(const std::string& path) {
  const char* root = secure_getenv("ORVO_SYSROOT");
  if (root == nullptr || *root == '\0' || path.empty() || path.front() != '/') {
    return path;
  }
  std::string moved = root;
  while (moved.size() > 1 && moved.back() == '/') {
    moved.pop_back();
  }
  moved += path;
  const bool inProc = path.rfind("/proc/", 0) == 0;
  return inProc && access(moved.c_str(), F_OK) != 0 ? path : moved;
}

}  // namespace orvo
