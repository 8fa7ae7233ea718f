// The background process that measures the machine at the first start.
#pragma once

#include "platform/process.h"

namespace serve {

// Measures unless the machine as it is has been measured before. The destructor ends it.
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
