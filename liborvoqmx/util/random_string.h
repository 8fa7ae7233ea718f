// Random identifiers.
#pragma once

#include <random>
#include <string>

#include "platform/export.h"

namespace libmrv::util {

// `prefix`, then `count` characters drawn uniformly from the letters and digits of ASCII. A count
// below 1 gives the prefix alone.
ORVO_API std::string RandomString(const std::string& prefix, int count);

namespace internal {

// Uniform integers between two inclusive bounds, from a 64-bit Mersenne Twister seeded once from
// the system's entropy.
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
