#include "contract/blocks.h"

#include <gtest/gtest.h>

#include <limits>

namespace orvo {
namespace {

TEST(Blocks, GrowFromOneSegmentToEight) {
  const std::array<int64_t, 10> lengths = {1, 2, 2, 2, 3, 4, 4, 6, 8, 8};
  int64_t first = 0;
  for (size_t block = 0; block < lengths.size(); ++block) {
    EXPECT_EQ(FirstOfBlock(static_cast<int64_t>(block)), first);
    first += lengths[block];
  }
}

TEST(Blocks, CoverAllSegmentsWithoutAGap) {
  for (int64_t segment = 0; segment < 1000; ++segment) {
    const int64_t block = BlockOf(segment);
    EXPECT_LE(FirstOfBlock(block), segment);
    EXPECT_GE(LastOfBlock(block), segment);
    EXPECT_EQ(BlockOf(LastOfBlock(block) + 1), block + 1);
  }
}

TEST(Blocks, EndRunsOnlyWhereBoxesShareThem) {
  unsetenv(kBlocksVariable);
  EXPECT_EQ(LastOfRun(5), std::numeric_limits<int64_t>::max());
  setenv(kBlocksVariable, "1", 1);
  EXPECT_EQ(LastOfRun(5), 6);
  EXPECT_GE(LastOfRun(std::numeric_limits<int>::max()), std::numeric_limits<int>::max());
  unsetenv(kBlocksVariable);
}

}  // namespace
}  // namespace orvo
