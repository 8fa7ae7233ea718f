// A script that replaces a transcoder.
#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

#include "platform/unique_fd.h"

namespace test {

inline constexpr char kFfmpeg[] = "/var/packages/Mirevo/target/bin/ffmpeg";

// Writes its arguments and its pid to files, then runs until it is stopped.
inline constexpr char kStandIn[] =
    "printf '%s\\n' \"$@\" > \"$ORVO_SYSROOT/argv.$$\"\n"
    "echo $$ > \"$ORVO_SYSROOT/started\"\nexec sleep 1000\n";

// Observes such scripts below one sysroot.
class StandIn {
 public:
  explicit StandIn(const std::string& root);

  // Waits for the next script to start and returns its pid.
  pid_t NextStarted() const;
  // Has a script started that NextStarted has not returned yet?
  bool HasStarted() const;
  std::vector<std::string> Arguments(pid_t pid) const;

 private:
  std::string root_;
  orvo::UniqueFd started_;
};

}  // namespace test
