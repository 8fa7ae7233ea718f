// The background process that finds out about the machine: its engines, its platform, its speed.
#pragma once

#include "platform/process.h"

namespace serve {

// Proves the engines and measures the speed unless that is known of the machine as it is, and
// detects the platform (machine_setup.h). The destructor ends it.
class Measurement {
 public:
  // Starts nothing if it is not wanted.
  explicit Measurement(bool isWanted);

  // Ends it before its time.
  void Stop() { process_ = orvo::Process(); }

 private:
  orvo::Process process_;
};

}  // namespace serve
