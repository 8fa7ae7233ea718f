#include "webapi/http/number.h"

#include <gtest/gtest.h>

#include <string>

namespace {

TEST(Number, AWholeNumberIsDigitsAndNothingElse) {
  EXPECT_EQ(webapi::ParseNumber("0"), 0);
  EXPECT_EQ(webapi::ParseNumber("0000012"), 12);
  EXPECT_EQ(webapi::ParseNumber("9223372036854775807"), INT64_MAX);
  for (const char* text : {"", "-1", "-0", "+1", " 1", "1 ", "1.0", "1e3", "0x10", "12s", "one",
                           "9223372036854775808", "99999999999999999999"}) {
    EXPECT_FALSE(webapi::ParseNumber(text)) << text;
  }
}

TEST(Number, IsRemovedFromTheFrontOfAText) {
  std::string_view text = "42)/rest";
  EXPECT_EQ(webapi::TakeNumber(text), 42);
  EXPECT_EQ(text, ")/rest");
  for (const std::string_view other : {"", "-5", "x1", " 1", "99999999999999999999"}) {
    text = other;
    EXPECT_FALSE(webapi::TakeNumber(text)) << other;
    EXPECT_EQ(text, other);
  }
}

TEST(Number, ADecimalHasNoSignAndNoExponent) {
  EXPECT_EQ(webapi::ParseDecimal("12"), 12);
  EXPECT_EQ(webapi::ParseDecimal("12.25"), 12.25);
  EXPECT_EQ(webapi::ParseDecimal(".5"), 0.5);
  for (const char* text : {"", ".", "-1", "+1", "1e3", "1.2.3", "inf", "nan", "12s", " 1"}) {
    EXPECT_FALSE(webapi::ParseDecimal(text)) << text;
  }
}

TEST(Number, AProgramsOutputBeginsWithADecimal) {
  std::string_view text = "  1.5x";
  EXPECT_EQ(webapi::TakeDecimal(text), 1.5);
  EXPECT_EQ(text, "x");
  text = "-1.2e+03 ";
  EXPECT_EQ(webapi::TakeDecimal(text), -1200);
  for (const std::string_view other : {"", "   ", "N/A", "inf", "nanx"}) {
    text = other;
    EXPECT_FALSE(webapi::TakeDecimal(text)) << other;
    EXPECT_EQ(text, other);
  }
}

}  // namespace
