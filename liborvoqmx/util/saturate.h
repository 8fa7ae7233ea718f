// Limits numbers from outside to the range of an int.
#pragma once

#include <algorithm>
#include <limits>

namespace LibOrvoQMX {

// `value` without its fraction. Gives the nearest int if the result does not fit, and 0 if `value`
// is not a number.
constexpr int SaturateToInt(double value) {
  constexpr int kLowest = std::numeric_limits<int>::min();
  constexpr int kHighest = std::numeric_limits<int>::max();
  if (!(value > kLowest)) {
    return value <= kLowest ? kLowest : 0;
  }
  return value < kHighest ? static_cast<int>(value) : kHighest;
}

// Seconds in milliseconds. Gives the nearest whole second that fits if the result is too large.
constexpr int Milliseconds(long seconds) {
  constexpr long kMost = std::numeric_limits<int>::max() / 1000;
  return static_cast<int>(std::clamp(seconds, -kMost, kMost)) * 1000;
}

}  // namespace LibOrvoQMX
