// Bytes as text in JSON and in addresses.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <utility>

namespace orvo {

inline constexpr std::string_view kBase64UrlAlphabet =
    "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789-_";

// Encodes in base64url without padding.
inline std::string Base64Url(std::string_view bytes) {
  std::string text;
  unsigned pending = 0;
  int bits = 0;
  for (const char byte : bytes) {
    pending = (pending << 8) | static_cast<unsigned char>(byte);
    for (bits += 8; bits >= 6; bits -= 6) {
      text += kBase64UrlAlphabet[(pending >> (bits - 6)) & 0x3f];
    }
  }
  return bits > 0 ? text + kBase64UrlAlphabet[(pending << (6 - bits)) & 0x3f] : text;
}

// The bytes of such a text. Returns nothing unless it is exactly the text that Base64Url makes of
// them: two texts never mean the same bytes.
inline std::optional<std::string> FromBase64Url(std::string_view text) {
  std::string bytes;
  unsigned pending = 0;
  int bits = 0;
  for (const char character : text) {
    const size_t value = kBase64UrlAlphabet.find(character);
    if (value == std::string_view::npos) {
      return std::nullopt;
    }
    pending = (pending << 6) | static_cast<unsigned>(value);
    bits += 6;
    if (bits >= 8) {
      bits -= 8;
      bytes += static_cast<char>((pending >> bits) & 0xff);
    }
  }
  return Base64Url(bytes) == text ? std::optional(std::move(bytes)) : std::nullopt;
}

}  // namespace orvo
