#include "transcoder/lead_in.h"

#include <gtest/gtest.h>

namespace {

using orvo::transcoder::LeadIn;

constexpr AVRational kTick{1, 1000};
constexpr int64_t kSecond = AV_TIME_BASE;

TEST(LeadIn, EndsAQuarterOfASecondBeforeThePlace) {
  LeadIn leadIn;
  leadIn.Seek(10 * kSecond);
  EXPECT_TRUE(leadIn.Has(2000, 40, kTick));
  EXPECT_TRUE(leadIn.Has(9710, 40, kTick));
  EXPECT_FALSE(leadIn.Has(9711, 40, kTick));
  EXPECT_FALSE(leadIn.Has(10000, 40, kTick));
  EXPECT_FALSE(leadIn.Has(12000, 40, kTick));
}

TEST(LeadIn, CountsInTheTracksUnits) {
  LeadIn leadIn;
  leadIn.Seek(10 * kSecond);
  EXPECT_TRUE(leadIn.Has(9 * 90000, 3600, {1, 90000}));
  EXPECT_FALSE(leadIn.Has(10 * 90000, 3600, {1, 90000}));
}

TEST(LeadIn, MayLieBeforeTheClocksStart) {
  LeadIn leadIn;
  leadIn.Seek(-2 * kSecond);
  EXPECT_TRUE(leadIn.Has(-4000, 0, kTick));
  EXPECT_FALSE(leadIn.Has(-2000, 0, kTick));
}

TEST(LeadIn, HasNothingWithoutASeekOrATime) {
  LeadIn leadIn;
  EXPECT_FALSE(leadIn.Has(0, 40, kTick));
  leadIn.Seek(10 * kSecond);
  EXPECT_FALSE(leadIn.Has(AV_NOPTS_VALUE, 40, kTick));
  EXPECT_FALSE(leadIn.Has(0, 40, {0, 0}));
  EXPECT_TRUE(leadIn.Has(9749, -40, kTick)) << "an unknown duration";
}

}  // namespace
