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

}  // namespace LibOrvoQMX
