// Bytes as text in JSON and in addresses.
#pragma once

#include <string>
#include <string_view>

namespace orvo {

// Encodes in base64url without padding.
inline std::string Base64Url(std::string_view bytes) {
  constexpr std::string_view kAlphabet =
      "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789-_";
  std::string text;
  unsigned pending = 0;
  int bits = 0;
  for (const char byte : bytes) {
    pending = (pending << 8) | static_cast<unsigned char>(byte);
    for (bits += 8; bits >= 6; bits -= 6) {
      text += kAlphabet[(pending >> (bits - 6)) & 0x3f];
    }
  }
  return bits > 0 ? text + kAlphabet[(pending << (6 - bits)) & 0x3f] : text;
}

}  // namespace orvo
