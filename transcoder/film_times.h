// Decoding times for pictures that come with nothing but the times at which they are shown.
//
// Matroska stores no others. A picture is decoded when as many pictures as the codec may hold back
// are still to be shown: that time depends on the pictures alone, so two runs agree on it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace orvo::transcoder {

class DecodingTimes {
 public:
  // `reordered`: how many pictures may be stored ahead of one that is shown before them.
  explicit DecodingTimes(size_t reordered) : reordered_(reordered) {}

  // How many there are at least among pictures that are shown at these times, in stored order.
  static size_t ReorderedIn(const std::vector<int64_t>& shown);

  // The decoding times of the run's first pictures, in stored order. Enough of them are more than
  // `reordered`. They grow, and only damaged films have one that is later than the time of showing.
  std::vector<int64_t> Begin(const std::vector<int64_t>& shown);

  // That of the next picture.
  int64_t Next(int64_t shown);

 private:
  void Remember(int64_t shown);
  int64_t Grown(int64_t time);

  size_t reordered_;
  std::vector<int64_t> latest_;  // the latest times of showing so far, the earliest one first
  int64_t last_ = INT64_MIN;
};

}  // namespace orvo::transcoder
