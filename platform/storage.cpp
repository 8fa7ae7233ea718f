#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "platform/plat.h"

namespace {

bool IsDirectory(const std::string& path) {
  struct stat status {};
  return stat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode);
}

// 0 if this call made the directory, 1 if it existed, -1 otherwise.
int MakeOne(const std::string& path, uid_t owner, gid_t group, mode_t mode) {
  if (mkdir(path.c_str(), mode) == 0) {
    // If the directory cannot be given away (no privilege, or no such owner), the caller keeps it.
    return lchown(path.c_str(), owner, group) == 0 || errno == EPERM || errno == EINVAL ? 0 : -1;
  }
  if (errno == EEXIST && IsDirectory(path)) {
    return 1;
  }
  return -1;
}

bool MakeParents(const std::string& path, uid_t owner, gid_t group, mode_t mode) {
  for (auto slash = path.find('/', 1); slash != std::string::npos;
       slash = path.find('/', slash + 1)) {
    if (MakeOne(path.substr(0, slash), owner, group, mode) < 0) {
      return false;
    }
  }
  return true;
}

}  // namespace

int PlatFSMkdirP(const std::string& path, int mustBeNew, int parents, uid_t owner, gid_t group,
                 mode_t mode) {
  if (path.empty()) {
    errno = EINVAL;
    return -1;
  }
  if (parents != 0 && !IsDirectory(path) && !MakeParents(path, owner, group, mode)) {
    return -1;
  }
  const int made = MakeOne(path, owner, group, mode);
  if (made > 0 && mustBeNew != 0) {
    errno = EEXIST;
    return -1;
  }
  return made < 0 ? -1 : 0;
}

namespace libmrv::critical {

bool orvosdk::ORVOFSMkdirPMirevo(const std::string& path, mode_t mode) {
  return PlatFSMkdirP(path, 0, 1, geteuid(), getegid(), mode) == 0;
}

bool fileop::CheckFileAndGetSize(const std::string& path, int64_t& size) {
  struct stat status {};
  if (stat(path.c_str(), &status) != 0) {
    return false;
  }
  size = status.st_size;
  return true;
}

bool orvoindex::GetEADirPath(const std::string& path, std::string& directory) {
  const auto slash = path.rfind('/');
  const std::string folder = slash == std::string::npos ? "" : path.substr(0, slash + 1);
  const std::string name = slash == std::string::npos ? path : path.substr(slash + 1);
  if (name.empty()) {
    return false;
  }
  directory = folder + "@ea/" + name;
  return true;
}

}  // namespace libmrv::critical
