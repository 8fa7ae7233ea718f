// Texts without regard to case.
#pragma once

#include <algorithm>
#include <string>
#include <string_view>

namespace orvo {

// The letters A to Z in lower case. Other bytes stay, whatever the locale: they may be a part of a
// character.
constexpr char LowerCase(char c) {
  return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

inline std::string LowerCase(std::string_view text) {
  std::string lower(text);
  std::transform(lower.begin(), lower.end(), lower.begin(), [](char c) { return LowerCase(c); });
  return lower;
}

}  // namespace orvo
