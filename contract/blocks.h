// The blocks of a stream's segments.
//
// In a cluster, the balancer sends all segments of a block to one box, and the next block to the
// next box (docs/boxes.md). The first blocks are short, so that all boxes begin soon.
#pragma once

#include <array>
#include <cstdint>
#include <cstdlib>
#include <limits>

namespace orvo {

// The environment variable that says, by being there, that a run ends with the block in which it
// begins: another box makes the next block.
inline constexpr char kBlocksVariable[] = "ORVO_BLOCKS";

inline bool HasBlocks() {
  return std::getenv(kBlocksVariable) != nullptr;
}

// Where the short blocks begin, where the others do, and the length of the others. All numbers
// count from 0. The lengths grow slowly: three boxes of half real time each have every block ready
// in time for a viewer who has waited for the first segment (docs/boxes.md).
inline constexpr std::array<int64_t, 8> kShortBlocks = {0, 1, 3, 5, 7, 10, 14, 18};
inline constexpr int64_t kLongBlocks = 24;
inline constexpr int64_t kBlockLength = 8;
static_assert(kLongBlocks % kBlockLength == 0, "the number of a long block follows from n / 8");

// What is added to n / 8 for the number of a long block.
inline constexpr int64_t kBlockOffset =
    static_cast<int64_t>(kShortBlocks.size()) - kLongBlocks / kBlockLength;

constexpr int64_t FirstOfBlock(int64_t block) {
  return block < static_cast<int64_t>(kShortBlocks.size())
             ? kShortBlocks[static_cast<size_t>(block)]
             : (block - kBlockOffset) * kBlockLength;
}

constexpr int64_t BlockOf(int64_t segment) {
  int64_t block = segment / kBlockLength + kBlockOffset;
  while (block > 0 && segment < FirstOfBlock(block)) {
    --block;
  }
  return block;
}

constexpr int64_t LastOfBlock(int64_t block) {
  return FirstOfBlock(block + 1) - 1;
}

// The last segment that a run makes that begins with this one.
inline int64_t LastOfRun(int64_t first) {
  return HasBlocks() ? LastOfBlock(BlockOf(first)) : std::numeric_limits<int64_t>::max();
}

}  // namespace orvo
