// Numbers that come from outside, brought into the range of an int.
#pragma once

#include <limits>

namespace LibOrvoQMX {

// `value` without its fraction; the nearest int where that is none, and 0 for what is no number.
constexpr int SaturateToInt(double value) {
  constexpr int kLowest = std::numeric_limits<int>::min();
  constexpr int kHighest = std::numeric_limits<int>::max();
  if (!(value > kLowest)) {
    return value <= kLowest ? kLowest : 0;
  }
  return value < kHighest ? static_cast<int>(value) : kHighest;
}

}  // namespace LibOrvoQMX
