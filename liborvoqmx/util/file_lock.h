// A lock between processes, on a file that serves only as a lock. The kernel releases it when the
// process ends. If the process forks while it holds the lock, the lock lasts until the last of
// these processes ends.
//
// The file is created if it is missing; its folder must exist. Only its owner can open it, because
// anyone who can open a file can lock it and make all others wait. The file is never removed.
#pragma once

#include <cstdint>
#include <string>
#include <utility>

#include "platform/export.h"
#include "platform/unique_fd.h"

namespace orvo {

// A process holds such a lock for moments. One that holds it for this time is stuck, and the others
// go on without the lock or give up.
inline constexpr int kLockMilliseconds = 10000;

class ORVO_API FileLock {
 public:
  // Waits for the lock on the file `path`, at most `milliseconds`.
  static FileLock Wait(const std::string& path, int milliseconds = kLockMilliseconds);
  // Does not wait. The result is not held if another process holds the lock.
  static FileLock Try(const std::string& path);
  // The same for the lock on `name`. The file `path` serves many names.
  static FileLock WaitFor(const std::string& name, const std::string& path,
                          int milliseconds = kLockMilliseconds);

  // False if another process still holds the lock or the file cannot be opened.
  bool IsHeld() const { return file_.IsOpen(); }

 private:
  explicit FileLock(UniqueFd file) : file_(std::move(file)) {}

  UniqueFd file_;  // closing it releases the lock
};

// Opens or creates a file for locks on single bytes. On failure the result is not open and errno is
// set.
ORVO_API UniqueFd OpenLockFile(const std::string& path);

// Locks one byte of an open file. The byte represents one place or name. Waits at most
// `milliseconds` until it is free. Returns false if another process still holds it.
ORVO_API bool LockByte(const UniqueFd& file, int64_t byte, int milliseconds);

// Gives such a byte free.
ORVO_API void UnlockByte(const UniqueFd& file, int64_t byte);

}  // namespace orvo
