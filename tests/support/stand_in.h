// A script in a transcoder's place.
#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

#include "platform/unique_fd.h"

namespace test {

inline constexpr char kFfmpeg[] = "/var/packages/Mirevo/target/bin/ffmpeg";

// Tells its pid, keeps its arguments and works until it is stopped.
inline constexpr char kStandIn[] =
    "printf '%s\\n' \"$@\" > \"$ORVO_SYSROOT/argv.$$\"\n"
    "echo $$ > \"$ORVO_SYSROOT/started\"\nexec sleep 1000\n";

// Hears of such scripts below one sysroot.
class StandIn {
 public:
  explicit StandIn(const std::string& root);

  // Waits for the pid of the next one that starts.
  pid_t NextStarted() const;
  // Has one started that was not asked for yet?
  bool HasStarted() const;
  std::vector<std::string> Arguments(pid_t pid) const;

 private:
  std::string root_;
  orvo::UniqueFd started_;
};

}  // namespace test
