// A lock between processes, held on a file that is nothing but a lock. It goes with its process,
// and with the last of the processes that this one forks while it holds the lock.
//
// The file is made where it is missing, in a folder that is there, and only its owner can open it:
// whoever can open a file can lock it, and keep everybody else waiting. It is never removed.
#pragma once

#include <cstdint>
#include <string>
#include <utility>

#include "platform/export.h"
#include "platform/unique_fd.h"

namespace orvo {

class ORVO_API FileLock {
 public:
  // Waits for the lock on the file `path`.
  static FileLock Wait(const std::string& path);
  // Does not wait: a lock that another holds is not had.
  static FileLock Try(const std::string& path);
  // Waits for the lock on one of the many names that the file `path` stands for.
  static FileLock WaitFor(const std::string& name, const std::string& path);

  // False where another holds the lock, and where the file cannot be opened.
  bool IsHeld() const { return file_.IsOpen(); }

 private:
  explicit FileLock(UniqueFd file) : file_(std::move(file)) {}

  UniqueFd file_;  // closing it releases the lock
};

// Opens, or makes, a file of locks on single bytes. Not open, with errno set, when it cannot be
// had.
ORVO_API UniqueFd OpenLockFile(const std::string& path);

// Locks one byte of an open file, which stands for one place or name. False when another holds it,
// which with `wait` is waited for.
ORVO_API bool LockByte(const UniqueFd& file, int64_t byte, bool wait);

}  // namespace orvo
