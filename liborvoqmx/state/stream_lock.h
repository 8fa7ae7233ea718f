// A lock that serialises the processes that work on one stream.
#pragma once

#include <fcntl.h>
#include <sys/file.h>
#include <sys/types.h>

#include <cerrno>
#include <string>

#include "platform/unique_fd.h"

namespace LibOrvoQMX {

// Waits for the exclusive lock on a file of the stream directory and holds it. Creates the file
// with `mode` if it is missing. The directory must exist.
class StreamLock {
 public:
  StreamLock(const std::string& path, mode_t mode)
      : file_(open(path.c_str(), O_RDONLY | O_CREAT | O_CLOEXEC, mode)) {
    while (file_.IsOpen() && flock(file_.Get(), LOCK_EX) != 0 && errno == EINTR) {
    }
  }
  bool IsOpen() const { return file_.IsOpen(); }
  // A forked child calls this; the lock stays with the parent.
  void Leave() { file_.Reset(); }

 private:
  orvo::UniqueFd file_;  // closing it releases the lock
};

// Does any process hold that lock? One may, if the file is there and cannot be opened now.
inline bool IsStreamLocked(const std::string& path) {
  const orvo::UniqueFd file(open(path.c_str(), O_RDONLY | O_CLOEXEC));
  return file.IsOpen() ? flock(file.Get(), LOCK_SH | LOCK_NB) != 0
                       : errno != ENOENT && errno != ENOTDIR;
}

// Keeps the segments of a stream directory where they are while a request sends one of them: no run
// that begins before a viewer wants it starts, because a new run removes them. Any number of
// processes may hold it.
class SegmentHold {
 public:
  explicit SegmentHold(const std::string& directory)
      : directory_(open(directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC)) {
    while (directory_.IsOpen() && flock(directory_.Get(), LOCK_SH) != 0 && errno == EINTR) {
    }
  }

  static bool IsHeld(const std::string& directory) {
    const orvo::UniqueFd file(open(directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    return file.IsOpen() && flock(file.Get(), LOCK_EX | LOCK_NB) != 0;
  }

 private:
  orvo::UniqueFd directory_;  // closing it releases the lock
};

}  // namespace LibOrvoQMX
