#include "transcoder/silence.h"

#include <gtest/gtest.h>

#include <ctime>

namespace orvo::transcoder {
namespace {

constexpr int kTicks = 4;
constexpr int kLimit = kTicks * Silence::kTick;

// Has the processor for as long as a tick would notice.
void Work() {
  const clock_t begin = clock();
  while (clock() - begin < CLOCKS_PER_SEC * Silence::kTick / 1000 / 20) {
  }
}

int TicksUntilTheLimit(Silence& silence, void (*between)()) {
  int ticks = 1;
  for (between(); !silence.Tick(); between()) {
    ++ticks;
  }
  return ticks;
}

TEST(Silence, IsTooLongAfterTheLimitWhenTheProcessDoesNothing) {
  Silence silence(kLimit);
  EXPECT_EQ(TicksUntilTheLimit(silence, [] {}), kTicks);
}

TEST(Silence, MayLastThreeTimesAsLongWhenTheProcessIsAtWork) {
  Silence silence(kLimit);
  EXPECT_EQ(TicksUntilTheLimit(silence, Work), 3 * kTicks);
}

TEST(Silence, CountsAnewOnceSomethingHasCome) {
  Silence silence(kLimit);
  for (int i = 0; i < 3 * kTicks; ++i) {
    EXPECT_FALSE(silence.Tick());
    silence.Break();
  }
  EXPECT_EQ(TicksUntilTheLimit(silence, [] {}), kTicks);
}

TEST(Silence, OfAProcessThatHasEndedCountsAsIdle) {
  constexpr pid_t kNobody = (1 << 22) + 1;  // beyond the highest
  Silence silence(kLimit, kNobody);
  EXPECT_EQ(TicksUntilTheLimit(silence, Work), kTicks);
}

}  // namespace
}  // namespace orvo::transcoder
