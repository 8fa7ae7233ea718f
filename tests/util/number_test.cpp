#include "util/number.h"

#include <gtest/gtest.h>

namespace {

using namespace LibOrvoQMX;

TEST(Numbers, MustBeTheWholeText) {
  EXPECT_EQ(ParseNumber("0"), 0);
  EXPECT_EQ(ParseNumber("007"), 7);
  EXPECT_EQ(ParseNumber("9223372036854775807"), INT64_MAX);
  for (const char* text :
       {"", " 1", "1 ", "1.0", "-1", "-0", "+1", "1e3", "0x1", "a", "1a", "9223372036854775808"}) {
    EXPECT_FALSE(ParseNumber(text)) << text;
  }
}

TEST(Numbers, AtTheBeginningOfATextAreRead) {
  const struct {
    const char* text;
    int64_t number;
    int inRange;
    bool isInt;
  } rows[] = {{"", 0, 0, false},
              {"x1", 0, 0, false},
              {" 12x", 12, 12, true},
              {"-3", -3, -3, true},
              {"2147483646", 2147483646, 2147483646, true},
              {"2147483647", 2147483647, 2147483646, false},
              {"99999999999999999999", INT64_MAX, 2147483646, false},
              {"-99999999999999999999", INT64_MIN, INT32_MIN, false}};
  for (const auto& row : rows) {
    EXPECT_EQ(LeadingNumber(row.text), row.number) << row.text;
    EXPECT_EQ(LeadingInt(row.text), row.inRange) << row.text;
    EXPECT_EQ(BeginsWithInt(row.text), row.isInt) << row.text;
  }
}

}  // namespace
