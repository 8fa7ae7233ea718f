#include <gtest/gtest.h>

#include "convert/live_transcoders.h"

namespace {

using convert::Clock;
using convert::RightOfWay;
using std::chrono::milliseconds;
using std::chrono::seconds;

TEST(RightOfWay, ConversionsRunUntilAViewerAsks) {
  RightOfWay way;
  const auto start = Clock::now();
  EXPECT_TRUE(way.MayRun(start, false));
  EXPECT_TRUE(way.MayRun(start, true)) << "one that runs beside hardware transcoders goes on";
  EXPECT_FALSE(way.NextChange());
  way.Yield(start);
  EXPECT_FALSE(way.MayRun(start, false));
}

TEST(RightOfWay, ConversionsGoOnThirtySecondsAfterAViewerWhoDoesNotCome) {
  RightOfWay way;
  const auto start = Clock::now();
  way.Yield(start);
  EXPECT_FALSE(way.MayRun(start + milliseconds(29999), false));
  EXPECT_EQ(way.NextChange(), start + seconds(30));
  EXPECT_TRUE(way.MayRun(start + seconds(30), false));
  EXPECT_FALSE(way.NextChange());
}

TEST(RightOfWay, ConversionsGoOnAfterTheViewersHaveLeft) {
  RightOfWay way;
  const auto start = Clock::now();
  way.Yield(start);
  EXPECT_FALSE(way.MayRun(start + seconds(1), true));
  EXPECT_FALSE(way.NextChange()) << "only the viewer's end changes this";
  EXPECT_FALSE(way.MayRun(start + seconds(100), true));
  EXPECT_FALSE(way.MayRun(start + seconds(101), false)) << "the viewer may be seeking";
  EXPECT_FALSE(way.MayRun(start + seconds(102), true));
  EXPECT_FALSE(way.MayRun(start + seconds(103), false));
  EXPECT_FALSE(way.MayRun(start + milliseconds(105900), false));
  EXPECT_TRUE(way.MayRun(start + seconds(106), false));
}

TEST(RightOfWay, AnotherRequestStartsTheWaitAnew) {
  RightOfWay way;
  const auto start = Clock::now();
  way.Yield(start);
  way.Yield(start + seconds(20));
  EXPECT_FALSE(way.MayRun(start + seconds(49), false));
  EXPECT_TRUE(way.MayRun(start + seconds(50), false));
}

}  // namespace
