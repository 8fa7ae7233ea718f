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

// Where the short blocks begin, and the length of the others. All numbers count from 0.
inline constexpr std::array<int64_t, 3> kShortBlocks = {0, 2, 4};
inline constexpr int64_t kBlockLength = 8;

constexpr int64_t FirstOfBlock(int64_t block) {
  constexpr auto kShort = static_cast<int64_t>(kShortBlocks.size());
  return block < kShort ? kShortBlocks[static_cast<size_t>(block)]
                        : (block - kShort + 1) * kBlockLength;
}

constexpr int64_t BlockOf(int64_t segment) {
  int64_t block = segment / kBlockLength + static_cast<int64_t>(kShortBlocks.size()) - 1;
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
