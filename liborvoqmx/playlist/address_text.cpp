#include "playlist/address_text.h"

#include <cstdio>
#include <string_view>

namespace LibOrvoQMX {

std::string AddressText(const Json::Value& value) {
  if (value.isInt64()) {
    return std::to_string(value.asInt64());
  }
  if (value.isUInt64()) {
    return std::to_string(value.asUInt64());
  }
  return value.isConvertibleTo(Json::stringValue) ? value.asString() : "";
}

std::string PercentEncode(const std::string& text) {
  constexpr std::string_view kPlain = "-_.~";
  std::string encoded;
  for (const char character : text) {
    if (IsAsciiLetter(character) || IsAsciiDigit(character) ||
        kPlain.find(character) != std::string_view::npos) {
      encoded += character;
      continue;
    }
    char hexadecimal[4];
    snprintf(hexadecimal, sizeof(hexadecimal), "%%%02X", static_cast<unsigned char>(character));
    encoded += hexadecimal;
  }
  return encoded;
}

}  // namespace LibOrvoQMX
