#include "metadata/large_attachments.h"

#include <unistd.h>

#include <algorithm>
#include <array>
#include <bit>
#include <optional>
#include <string_view>

namespace LibOrvoQMX {
namespace {

// Elements of Matroska.
constexpr std::string_view kAttachmentsId = "\x19\x41\xa4\x69";
constexpr uint32_t kAttachments = 0x1941a469;
constexpr uint32_t kAttachedFile = 0x61a7;
constexpr uint32_t kMediaType = 0x4660;
constexpr char kVoid = '\xec';

// Attachments that are smaller in all do no harm.
constexpr int64_t kLarge = 32 << 20;
constexpr int kMostElements = 20000;  // that are looked at
constexpr size_t kLongestId = 4;
constexpr size_t kLongestSize = 8;

struct Element {
  uint32_t id = 0;
  int64_t begin = 0;
  int64_t body = 0;
  int64_t end = 0;
};

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

std::string BytesAt(const orvo::MediaFile& film, int64_t position, size_t count) {
  std::string bytes(count, '\0');
  const ssize_t read = pread(film.Get(), bytes.data(), count, position);
  bytes.resize(read > 0 ? static_cast<size_t>(read) : 0);
  return bytes;
}

// Nothing if there is no whole element.
std::optional<Element> ElementAt(const orvo::MediaFile& film, int64_t position) {
  const std::string bytes = BytesAt(film, position, kLongestId + kLongestSize);
  const auto id = NumberIn(bytes, kLongestId, true);
  const auto size =
      id ? NumberIn(std::string_view(bytes).substr(id->length), kLongestSize, false) : std::nullopt;
  const auto left = static_cast<uint64_t>(film.Status().st_size - position);
  if (!size || size->value > left || id->length + size->length + size->value > left) {
    return std::nullopt;
  }
  const int64_t body = position + static_cast<int64_t>(id->length + size->length);
  return Element{static_cast<uint32_t>(id->value), position, body,
                 body + static_cast<int64_t>(size->value)};
}

// Calls `take` for each element within another one, while it returns true.
template <typename Take>
void ForEachWithin(const orvo::MediaFile& film, const Element& parent, int& budget, Take take) {
  for (int64_t position = parent.body; position < parent.end && --budget > 0;) {
    const auto element = ElementAt(film, position);
    if (!element || !take(*element)) {
      return;
    }
    position = element->end;
  }
}

bool IsPicture(const orvo::MediaFile& film, const Element& attachment, int& budget) {
  constexpr std::string_view kPictures = "image/";
  bool isPicture = false;
  ForEachWithin(film, attachment, budget, [&](const Element& part) {
    if (part.id == kMediaType) {
      isPicture = BytesAt(film, part.body, kPictures.size()) == kPictures;
    }
    return part.id != kMediaType;
  });
  return isPicture;
}

// The header of an empty element of the same length.
std::string VoidHeader(const Element& element) {
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

}  // namespace

void LargeAttachments::Hide(int64_t position, uint8_t* bytes, size_t count) {
  LookFor(position, bytes, count);
  const int64_t end = position + static_cast<int64_t>(count);
  for (const Replacement& replacement : replacements_) {
    int64_t place = replacement.position;
    for (const char byte : replacement.bytes) {
      if (place >= position && place < end) {
        bytes[place - position] = static_cast<uint8_t>(byte);
      }
      ++place;
    }
  }
}

// The id may begin in the bytes before.
void LargeAttachments::LookFor(int64_t position, const uint8_t* bytes, size_t count) {
  const int64_t before = std::min<int64_t>(position, kAttachmentsId.size() - 1);
  std::string text = BytesAt(film_, position - before, static_cast<size_t>(before));
  text.append(reinterpret_cast<const char*>(bytes), count);
  for (size_t found = text.find(kAttachmentsId); found != std::string::npos;
       found = text.find(kAttachmentsId, found + 1)) {
    LookInto(position - before + static_cast<int64_t>(found));
  }
}

void LargeAttachments::LookInto(int64_t position) {
  const auto list = ElementAt(film_, position);
  if (position == seen_ || !list || list->id != kAttachments || list->end - list->body <= kLarge) {
    return;
  }
  seen_ = position;
  replacements_.clear();
  int budget = kMostElements;
  ForEachWithin(film_, *list, budget, [&](const Element& attachment) {
    if (attachment.id == kAttachedFile && !IsPicture(film_, attachment, budget)) {
      replacements_.push_back({attachment.begin, VoidHeader(attachment)});
    }
    return true;
  });
}

}  // namespace LibOrvoQMX
