// Reads decimal texts as numbers. Each number is read once, where it enters the program.
#pragma once

#include <algorithm>
#include <charconv>
#include <cstdint>
#include <cstdlib>
#include <limits>
#include <optional>
#include <string>
#include <string_view>
#include <system_error>

namespace LibOrvoQMX {

// Removes a number, 0 or more, from the front of `text` and returns it. Returns nothing and leaves
// `text` unchanged if there is none, or if it does not fit.
inline std::optional<int64_t> TakeNumber(std::string_view& text) {
  int64_t number = 0;
  const auto parsed = std::from_chars(text.data(), text.data() + text.size(), number);
  if (parsed.ec != std::errc() || text.front() == '-') {
    return std::nullopt;
  }
  text.remove_prefix(static_cast<size_t>(parsed.ptr - text.data()));
  return number;
}

// The number in `text`, 0 or more, if the whole text is a number. Nothing for any other text and
// for a number that does not fit.
inline std::optional<int64_t> ParseNumber(std::string_view text) {
  const auto number = TakeNumber(text);
  return text.empty() ? number : std::nullopt;
}

// The number at the beginning of `text`, read like strtol does: 0 if there is none, and the nearest
// number that fits if it is too large.
inline int64_t LeadingNumber(const std::string& text) {
  return std::strtoll(text.c_str(), nullptr, 10);
}

// The same in the range of an int. The largest int is left out, so every number has a successor.
inline int LeadingInt(const std::string& text) {
  return static_cast<int>(std::clamp<int64_t>(LeadingNumber(text), std::numeric_limits<int>::min(),
                                              std::numeric_limits<int>::max() - 1));
}

// Does `text` begin with a number in that range?
inline bool BeginsWithInt(const std::string& text) {
  char* end = nullptr;
  const long long number = std::strtoll(text.c_str(), &end, 10);
  return end != text.c_str() && number >= std::numeric_limits<int>::min() &&
         number < std::numeric_limits<int>::max();
}

}  // namespace LibOrvoQMX
