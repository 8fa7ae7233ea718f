// An exclusive lock between processes, held on a file.
#pragma once

#include <string>

#include "platform/export.h"

namespace LibMirevo {

class ORVO_API Lock {
 public:
  // Locks the file `path`, which is created with its directory where missing. `blocking`: waits
  // until the lock is free; otherwise a lock that another holds is a failure.
  Lock(const std::string& path, bool blocking);
  virtual ~Lock();
  Lock(const Lock&) = delete;
  Lock& operator=(const Lock&) = delete;

  bool LockFile();    // true when the lock was obtained
  void UnlockFile();  // releases it; nothing when there is none
  bool IsLockSucess() const;

 protected:
  int m_fd = -1;
  std::string m_path;
  bool m_blocking;
  bool m_locked = false;
};

}  // namespace LibMirevo
