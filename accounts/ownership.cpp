#include "accounts/ownership.h"

#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>

#include "platform/log.h"

namespace accounts {

void LeaveToFolderOwner(const std::string& path) {
  struct stat folder {};
  const std::string parent = std::filesystem::path(path).parent_path();
  if (geteuid() != 0 || stat(parent.c_str(), &folder) != 0) {
    return;
  }
  if (lchown(path.c_str(), folder.st_uid, folder.st_gid) != 0) {
    ORVO_LOG("Failed to give [%s] to the owner of its folder", path.c_str());
  }
}

}  // namespace accounts
