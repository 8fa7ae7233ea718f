#include "transcoder/resumption.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>

namespace orvo::transcoder {
namespace {

using Strings = std::vector<std::string>;

constexpr double kMilliseconds = 1000;

std::string Seconds(double seconds) {
  std::array<char, 32> text{};
  snprintf(text.data(), text.size(), "%.3f", seconds);
  return text.data();
}

// The value of an option that the arguments have, before `end`.
void SetValue(Strings::iterator begin, Strings::iterator end, const char* option,
              const std::string& value) {
  const auto found = std::find(begin, end, option);
  if (found != end && found + 1 != end) {
    *(found + 1) = value;
  }
}

}  // namespace

Strings ResumedAt(Strings arguments, const SegmentPlan& plan, int number) {
  const double start = plan.start + (number - plan.firstNumber) * plan.length;
  const auto input = std::find(arguments.begin(), arguments.end(), "-i");
  SetValue(arguments.begin(), input, "-ss", Seconds(start));
  SetValue(input, arguments.end(), "-hls_seek_time",
           std::to_string(std::llround(start * kMilliseconds)));
  SetValue(input, arguments.end(), "-segment_start_number", std::to_string(number));
  return arguments;
}

}  // namespace orvo::transcoder
