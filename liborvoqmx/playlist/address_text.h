// Values as they go into an address.
#pragma once

#include <json/value.h>

#include <string>

namespace LibOrvoQMX {

// A whole number is written in decimal, however it was spelled: 1.0 is 1. Any other value is read
// as a text; "" for what has none.
std::string AddressText(const Json::Value& value);

// `text` with every byte but ASCII letters, digits and "-_.~" as "%" and two hexadecimal digits.
std::string PercentEncode(const std::string& text);

// Letters and digits as ASCII has them, whatever the locale.
constexpr bool IsAsciiLetter(char character) {
  const auto lower = static_cast<unsigned char>(character | 0x20);
  return lower >= 'a' && lower <= 'z';
}
constexpr bool IsAsciiDigit(char character) {
  return character >= '0' && character <= '9';
}

}  // namespace LibOrvoQMX
