#include "transcoder/resumption.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>

namespace orvo::transcoder {
namespace {

using Strings = std::vector<std::string>;

constexpr double kMilliseconds = 1000;

std::string Seconds(double seconds, int digits = 3) {
  std::array<char, 32> text{};
  snprintf(text.data(), text.size(), "%.*f", digits, seconds);
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

Strings ResumedAt(Strings arguments, double start) {
  const auto input = std::find(arguments.begin(), arguments.end(), "-i");
  if (std::find(arguments.begin(), input, "-ss") == input) {
    arguments.insert(input, {"-ss", "0"});
  }
  SetValue(arguments.begin(), std::find(arguments.begin(), arguments.end(), "-i"), "-ss",
           Seconds(start, 6));
  return arguments;
}

}  // namespace orvo::transcoder
