// Elements of Matroska for tests.
#pragma once

#include <cstdint>
#include <string>

namespace test {

// The header of an element with a size of eight bytes, and its first bytes.
inline std::string Element(const std::string& id, const std::string& body, uint64_t size) {
  std::string text = id + '\x01';
  for (int shift = 48; shift >= 0; shift -= 8) {
    text += static_cast<char>(size >> shift & 0xff);
  }
  return text + body;
}

inline std::string Element(const std::string& id, const std::string& body) {
  return Element(id, body, body.size());
}

}  // namespace test
