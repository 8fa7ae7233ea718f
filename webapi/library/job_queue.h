// A line in which requests wait that would keep a processor busy.
//
// However many tiles a page shows, few films are decoded for them at a time. A place is a lock on
// one byte of the file "/var/packages/Mirevo/cache/.jobs", so that it goes with its process however
// that ends.
#pragma once

#include <optional>
#include <string>

#include "platform/unique_fd.h"

namespace webapi {

class JobPlace {
 public:
  // Waits for one of `places` in a queue kept in `file`, with at most `line` others, for
  // `milliseconds` at most. Nothing when the line is too long or the time is over.
  static std::optional<JobPlace> Take(const std::string& file, int places, int line,
                                      int milliseconds);
  // The same for the jobs of this machine.
  static std::optional<JobPlace> Take();

 private:
  explicit JobPlace(orvo::UniqueFd file) : file_(std::move(file)) {}

  orvo::UniqueFd file_;
};

}  // namespace webapi
