#include "gst/fragment_clock.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <string_view>

namespace orvo::gst {
namespace {

constexpr size_t kHeader = 8;      // the size and the name
constexpr size_t kFullHeader = 4;  // then the version and the flags

uint64_t Number(std::span<const uint8_t> bytes, size_t place, size_t length) {
  uint64_t number = 0;
  for (size_t i = place; i < place + length; ++i) {
    number = number << 8 | (i < bytes.size() ? bytes[i] : 0);
  }
  return number;
}

void Write(std::span<uint8_t> bytes, size_t place, size_t length, uint64_t number) {
  for (size_t i = place + length; i-- > place; number >>= 8) {
    bytes[i] = static_cast<uint8_t>(number);
  }
}

// The place of a field behind two times, which have 8 bytes in version 1 and 4 in version 0.
size_t BehindTimes(std::span<const uint8_t> content) {
  return kFullHeader + (Number(content, 0, 1) == 1 ? 16 : 8);
}

void AddToTime(std::span<uint8_t> content, uint64_t ticks) {
  const size_t length = Number(content, 0, 1) == 1 ? 8 : 4;
  const uint64_t most =
      length == 8 ? std::numeric_limits<uint64_t>::max() : std::numeric_limits<uint32_t>::max();
  const uint64_t time = Number(content, kFullHeader, length);
  if (content.size() >= kFullHeader + length && ticks <= most - time) {
    Write(content, kFullHeader, length, time + ticks);
  }
}

}  // namespace

struct FragmentClock::Box {
  std::string_view name;
  uint64_t size;               // with the header
  std::span<uint8_t> content;  // as far as it is here
};

FragmentClock::Box FragmentClock::BoxAt(std::span<uint8_t> bytes) {
  const uint64_t size = std::max<uint64_t>(Number(bytes, 0, 4), kHeader);
  const size_t here = static_cast<size_t>(std::min<uint64_t>(size, bytes.size()));
  return {{reinterpret_cast<const char*>(bytes.data()) + 4, 4},
          size,
          bytes.subspan(kHeader, here - kHeader)};
}

bool FragmentClock::Skip(size_t size) {
  const bool isMedia = media_ >= size;
  media_ -= isMedia ? size : 0;
  return isMedia;
}

void FragmentClock::Set(std::span<uint8_t> piece) {
  const auto skipped = static_cast<size_t>(std::min<uint64_t>(media_, piece.size()));
  media_ -= skipped;
  if (skipped < piece.size()) {
    media_ = SetWithin(piece.subspan(skipped));
  }
}

// Returns how many bytes the last box lacks.
uint64_t FragmentClock::SetWithin(std::span<uint8_t> boxes) {
  while (boxes.size() >= kHeader) {
    const Box box = BoxAt(boxes);
    Take(box);
    if (box.size > boxes.size()) {
      return box.size - boxes.size();
    }
    boxes = boxes.subspan(static_cast<size_t>(box.size));
  }
  return 0;
}

void FragmentClock::Take(const Box& box) {
  if (box.name == "moov" || box.name == "trak" || box.name == "mdia" || box.name == "moof" ||
      box.name == "traf") {
    SetWithin(box.content);
  } else if (box.name == "tkhd") {
    track_ = static_cast<uint32_t>(Number(box.content, BehindTimes(box.content), 4));
  } else if (box.name == "mdhd") {
    rates_[track_] = static_cast<uint32_t>(Number(box.content, BehindTimes(box.content), 4));
  } else if (box.name == "tfhd") {
    track_ = static_cast<uint32_t>(Number(box.content, kFullHeader, 4));
  } else if (box.name == "tfdt") {
    AddToTime(box.content, static_cast<uint64_t>(std::llround(seconds_ * rates_[track_])));
  }
}

}  // namespace orvo::gst
