// How long segments and fragments are, and the clock that fragments are named by.
#pragma once

#include <cmath>
#include <cstdint>

#include "contract/fragments.h"

namespace orvo::transcoder {

inline constexpr double kUsualLength =
    kFragmentSeconds;  // seconds, where the command line does not say
inline constexpr double kShortestLength = 0.5;
inline constexpr double kLongestLength = 600;

inline constexpr int64_t kFragmentClockRate = kTicksPerSecond;

// The length of a fragment in ticks of that clock.
inline int64_t FragmentTicks(double seconds) {
  return std::llround(seconds * static_cast<double>(kFragmentClockRate));
}

}  // namespace orvo::transcoder
