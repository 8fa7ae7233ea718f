// Serialising the processes that work on one stream.
#pragma once

#include <fcntl.h>
#include <sys/file.h>
#include <sys/types.h>

#include <cerrno>
#include <string>

#include "platform/unique_fd.h"

namespace LibOrvoQMX {

// Waits for the exclusive lock on a file of the stream directory, made with `mode` where it is
// missing, and holds it. The directory has to be there.
class StreamLock {
 public:
  StreamLock(const std::string& path, mode_t mode)
      : file_(open(path.c_str(), O_RDONLY | O_CREAT | O_CLOEXEC, mode)) {
    while (file_.IsOpen() && flock(file_.Get(), LOCK_EX) != 0 && errno == EINTR) {
    }
  }
  bool IsOpen() const { return file_.IsOpen(); }

 private:
  orvo::UniqueFd file_;  // closing it releases the lock
};

}  // namespace LibOrvoQMX
