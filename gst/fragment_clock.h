// The clock of a fragmented MP4 file, set after its multiplexer, which counts from 0 whatever times
// it gets. Names and layouts of boxes are those of ISO/IEC 14496-12.
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <span>

namespace orvo::gst {

class FragmentClock {
 public:
  // `seconds` is what all decode times get in addition.
  explicit FragmentClock(double seconds) : seconds_(seconds) {}

  // Is the next piece of the file, of this size, media alone? Then it needs no Set().
  bool Skip(size_t size);
  // Sets the decode times in the next piece of the file, in place. No piece ends within a box other
  // than the one with the media. A time that would need more bits than it has stays as it is.
  void Set(std::span<uint8_t> piece);

 private:
  struct Box;

  static Box BoxAt(std::span<uint8_t> bytes);
  uint64_t SetWithin(std::span<uint8_t> boxes);
  void Take(const Box& box);

  double seconds_;
  uint64_t media_ = 0;                  // bytes of it that are still to come
  uint32_t track_ = 0;                  // the one whose boxes are read
  std::map<uint32_t, uint32_t> rates_;  // of each track, in ticks a second
};

}  // namespace orvo::gst
