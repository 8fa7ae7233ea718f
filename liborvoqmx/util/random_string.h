// Random identifiers.
#pragma once

#include <random>
#include <string>

#include "platform/export.h"

namespace libmrv::util {

// `prefix`, then `count` random ASCII letters and digits, all equally likely. A count below 1 gives
// only the prefix.
ORVO_API std::string RandomString(const std::string& prefix, int count);

namespace internal {

// Uniformly distributed integers between two inclusive bounds. A 64-bit Mersenne Twister makes
// them; the system's entropy seeds it once.
class ORVO_API RandomInt {
 public:
  RandomInt(int min, int max);
  int next();

 private:
  std::mt19937_64 engine_;
  std::uniform_int_distribution<int> range_;
};

}  // namespace internal
}  // namespace libmrv::util
