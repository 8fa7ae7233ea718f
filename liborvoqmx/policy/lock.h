// An exclusive lock between processes, held on a file.
#pragma once

#include <string>

#include "platform/export.h"

namespace LibMirevo {

class ORVO_API Lock {
 public:
  // Locks the file `path`. Creates the file and its directory if they are missing. With `blocking`
  // it waits until the lock is free; otherwise it fails if another process holds the lock.
  Lock(const std::string& path, bool blocking);
  virtual ~Lock();
  Lock(const Lock&) = delete;
  Lock& operator=(const Lock&) = delete;

  bool LockFile();    // true if the lock was obtained
  void UnlockFile();  // releases the lock, if it is held
  bool IsLockSucess() const;

 protected:
  int m_fd = -1;
  std::string m_path;
  bool m_blocking;
  bool m_locked = false;
};

}  // namespace LibMirevo
