#include "transcoder/film_times.h"

#include <gtest/gtest.h>

namespace orvo::transcoder {
namespace {

using Times = std::vector<int64_t>;

TEST(DecodingTimes, OfPicturesInOrderAreTheirOwn) {
  DecodingTimes times(DecodingTimes::ReorderedIn({0, 40, 80}));
  EXPECT_EQ(times.Begin({0, 40, 80}), (Times{0, 40, 80}));
  EXPECT_EQ(times.Next(120), 120);
}

TEST(DecodingTimes, LeaveRoomForPicturesThatAreStoredAheadOfOthers) {
  const Times shown = {0, 160, 80, 40, 120, 320, 240};
  ASSERT_EQ(DecodingTimes::ReorderedIn(shown), 2U);
  DecodingTimes times(2);
  EXPECT_EQ(times.Begin({0, 160, 80}), (Times{-80 - 80, -80, 0}));
  EXPECT_EQ(times.Next(40), 40);
  EXPECT_EQ(times.Next(120), 80);
  EXPECT_EQ(times.Next(320), 120);
}

TEST(DecodingTimes, AreTheSameInRunsThatStartElsewhere) {
  DecodingTimes whole(1);
  whole.Begin({0, 80, 40, 120});
  DecodingTimes part(1);
  part.Begin({120, 200});
  whole.Next(200);
  EXPECT_EQ(whole.Next(160), part.Next(160));
}

TEST(DecodingTimes, GrowWhateverTheFilmSays) {
  DecodingTimes times(1);
  times.Begin({100, 100});
  int64_t last = 100;
  for (const int64_t shown : {50, 50, 20, 90, -5}) {
    const int64_t time = times.Next(shown);
    EXPECT_GT(time, last);
    last = time;
  }
}

TEST(DecodingTimes, OfAFilmThatIsShorterThanItsReorderingComeAllTheSame) {
  EXPECT_EQ(DecodingTimes(3).Begin({0, 40}).size(), 2U);
  EXPECT_TRUE(DecodingTimes(3).Begin({}).empty());
}

}  // namespace
}  // namespace orvo::transcoder
