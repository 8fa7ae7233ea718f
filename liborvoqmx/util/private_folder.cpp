#include "util/private_folder.h"

#include <sys/stat.h>
#include <unistd.h>

#include "platform/plat.h"

namespace orvo {
namespace {

constexpr mode_t kParentMode = 0777;  // the umask applies

bool IsOurs(const struct stat& status) {
  return S_ISDIR(status.st_mode) && (geteuid() == 0 || status.st_uid == geteuid());
}

}  // namespace

bool MakePrivateFolder(const std::string& path) {
  const std::string parent = path.substr(0, path.find_last_of('/'));
  struct stat status {};
  if (lstat(path.c_str(), &status) != 0 &&
      (PlatFSMkdirP(parent, 0, 1, geteuid(), getegid(), kParentMode) != 0 ||
       PlatFSMkdirP(path, 0, 0, geteuid(), getegid(), S_IRWXU) != 0 ||
       lstat(path.c_str(), &status) != 0)) {
    return false;
  }
  return IsOurs(status) &&
         ((status.st_mode & ACCESSPERMS) == S_IRWXU || chmod(path.c_str(), S_IRWXU) == 0);
}

bool IsOwnFolder(const std::string& path) {
  struct stat status {};
  return lstat(path.c_str(), &status) == 0 && IsOurs(status);
}

}  // namespace orvo
