#include "policy/lock.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "platform/log.h"
#include "platform/plat.h"

namespace LibMirevo {
namespace {

bool MakeDirectoryOf(const std::string& path) {
  const auto slash = path.rfind('/');
  if (slash == std::string::npos) {
    ORVO_LOG("Find dir path failed %s", path.c_str());
    return false;
  }
  const std::string directory = path.substr(0, slash);
  struct stat status {};
  if (directory.empty() || stat(directory.c_str(), &status) == 0) {
    return true;
  }
  if (PlatFSMkdirP(directory, 0, 1, geteuid(), getegid(), 0777) != 0) {
    ORVO_LOG("Fail to create dir [%s]", directory.c_str());
    return false;
  }
  return true;
}

}  // namespace

Lock::Lock(const std::string& path, bool blocking) : m_path(path), m_blocking(blocking) {
  LockFile();
}

Lock::~Lock() {
  UnlockFile();
}

bool Lock::LockFile() {
  if (!MakeDirectoryOf(m_path)) {
    return false;
  }
  UnlockFile();
  // Every user may write to this directory, so open() must not follow a link there.
  m_fd = open(m_path.c_str(), O_RDONLY | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0777);
  if (m_fd < 0) {
    return false;
  }
  const int mode = m_blocking ? LOCK_EX : LOCK_EX | LOCK_NB;
  int result = 0;
  do {
    result = flock(m_fd, mode);
  } while (result != 0 && errno == EINTR);
  m_locked = result == 0;
  return m_locked;
}

void Lock::UnlockFile() {
  if (m_fd < 0) {
    return;
  }
  if (m_locked) {
    flock(m_fd, LOCK_UN);
  }
  close(m_fd);
  m_fd = -1;
  m_locked = false;
}

bool Lock::IsLockSucess() const {
  return m_locked && m_fd >= 0;
}

}  // namespace LibMirevo
