// A queue for requests that need much processor time.
//
// A page may show many tiles, but only a few films are decoded at a time. A place is a lock on one
// byte of the file "/var/packages/Mirevo/cache/.jobs". The kernel releases it when the process ends
// for any reason.
#pragma once

#include <optional>
#include <string>

#include "platform/unique_fd.h"

namespace webapi {

class JobPlace {
 public:
  // Waits at most `milliseconds` for one of `places` in the queue of `file`. At most `line`
  // requests may wait. Returns nothing if too many wait or the time is over.
  static std::optional<JobPlace> Take(const std::string& file, int places, int line,
                                      int milliseconds);
  // The same for this machine's queue.
  static std::optional<JobPlace> Take();

 private:
  explicit JobPlace(orvo::UniqueFd file) : file_(std::move(file)) {}

  orvo::UniqueFd file_;
};

}  // namespace webapi
