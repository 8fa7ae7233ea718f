#include "contract/blocks.h"

#include <gtest/gtest.h>

#include <limits>

namespace orvo {
namespace {

TEST(Blocks, AreTwoTwoAndFourSegmentsAndThenEightEach) {
  const std::array<int64_t, 6> firsts = {0, 2, 4, 8, 16, 24};
  for (size_t block = 0; block < firsts.size(); ++block) {
    EXPECT_EQ(FirstOfBlock(static_cast<int64_t>(block)), firsts[block]);
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
  EXPECT_EQ(LastOfRun(5), 7);
  EXPECT_GE(LastOfRun(std::numeric_limits<int>::max()), std::numeric_limits<int>::max());
  unsetenv(kBlocksVariable);
}

}  // namespace
}  // namespace orvo
