// Values in the form that an address needs.
#pragma once

#include <json/value.h>

#include <string>

namespace LibOrvoQMX {

// A whole number gives its decimal digits, in whatever form it was written: 1.0 gives "1". Any
// other value gives its text, or "" if it has none.
std::string AddressText(const Json::Value& value);

// Replaces every byte except ASCII letters, digits and "-_.~" by "%" and two hexadecimal digits.
std::string PercentEncode(const std::string& text);

// ASCII letters and digits, independent of the locale.
constexpr bool IsAsciiLetter(char character) {
  const auto lower = static_cast<unsigned char>(character | 0x20);
  return lower >= 'a' && lower <= 'z';
}
constexpr bool IsAsciiDigit(char character) {
  return character >= '0' && character <= '9';
}

}  // namespace LibOrvoQMX
