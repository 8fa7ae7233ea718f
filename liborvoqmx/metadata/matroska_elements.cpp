#include "metadata/matroska_elements.h"

#include <unistd.h>

#include <algorithm>
#include <bit>
#include <string_view>

namespace LibOrvoQMX {
namespace {

constexpr size_t kLongestId = 4;
constexpr size_t kLongestSize = 8;
constexpr char kVoid = '\xec';

// A number whose length stands in its first bits, and that length. Nothing if it is cut off.
struct Number {
  uint64_t value = 0;
  size_t length = 0;
};
std::optional<Number> NumberIn(std::string_view bytes, size_t longest, bool keepsMark) {
  const auto first = static_cast<uint8_t>(bytes.empty() ? 0 : bytes[0]);
  const auto length = static_cast<size_t>(std::countl_zero(first)) + 1;
  if (length > longest || length > bytes.size()) {
    return std::nullopt;
  }
  uint64_t value = keepsMark ? first : first & (0xffU >> length);
  for (const char byte : bytes.substr(1, length - 1)) {
    value = value << 8 | static_cast<uint8_t>(byte);
  }
  return Number{value, length};
}

struct Header {
  MatroskaElement element;
  bool isWhole;
};
std::optional<Header> HeaderAt(const orvo::MediaFile& film, int64_t position) {
  const std::string bytes = BytesAt(film, position, kLongestId + kLongestSize);
  const auto id = NumberIn(bytes, kLongestId, true);
  const auto size =
      id ? NumberIn(std::string_view(bytes).substr(id->length), kLongestSize, false) : std::nullopt;
  const int64_t body = size ? position + static_cast<int64_t>(id->length + size->length) : 0;
  if (!size || body > film.Status().st_size) {
    return std::nullopt;
  }
  const auto left = static_cast<uint64_t>(film.Status().st_size - body);
  const int64_t end = body + static_cast<int64_t>(std::min(size->value, left));
  return Header{{static_cast<uint32_t>(id->value), position, body, end}, size->value <= left};
}

}  // namespace

std::string BytesAt(const orvo::MediaFile& film, int64_t position, size_t count) {
  std::string bytes(count, '\0');
  const ssize_t read = pread(film.Get(), bytes.data(), count, position);
  bytes.resize(read > 0 ? static_cast<size_t>(read) : 0);
  return bytes;
}

std::string VoidHeader(const MatroskaElement& element) {
  const auto length = static_cast<size_t>(element.body - element.begin);
  const size_t digits = std::min(length - 1, kLongestSize);
  auto size = static_cast<uint64_t>(element.end - element.begin) - 1 - digits;
  std::string header(1 + digits, kVoid);
  for (size_t i = digits; i > 0; --i, size >>= 8) {
    header[i] = static_cast<char>(size & 0xff);
  }
  header[1] = static_cast<char>(static_cast<uint8_t>(header[1]) | 0x80U >> (digits - 1));
  return header;
}

std::optional<MatroskaElement> OpenElementAt(const orvo::MediaFile& film, int64_t position) {
  const auto header = HeaderAt(film, position);
  return header ? std::optional(header->element) : std::nullopt;
}

std::optional<MatroskaElement> ElementAt(const orvo::MediaFile& film, int64_t position) {
  const auto header = HeaderAt(film, position);
  return header && header->isWhole ? std::optional(header->element) : std::nullopt;
}

}  // namespace LibOrvoQMX
