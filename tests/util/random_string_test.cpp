#include "util/random_string.h"

#include <gtest/gtest.h>

#include <cctype>
#include <set>

namespace {

using libmrv::util::RandomString;
using libmrv::util::internal::RandomInt;

TEST(RandomText, IsThePrefixAndThatManyLettersAndDigits) {
  const std::string text = RandomString("ab", 8);
  ASSERT_EQ(text.size(), 10U);
  EXPECT_EQ(text.substr(0, 2), "ab");
  for (const char c : text) {
    EXPECT_TRUE(std::isalnum(static_cast<unsigned char>(c)) != 0) << c;
  }
}

TEST(RandomText, IsThePrefixAloneForACountBelowOne) {
  EXPECT_EQ(RandomString("ab", 0), "ab");
  EXPECT_EQ(RandomString("ab", -1), "ab");
  EXPECT_EQ(RandomString("", 0), "");
}

TEST(RandomText, UsesTheWholeAlphabet) {
  const std::string text = RandomString("", 20000);
  EXPECT_EQ(std::set<char>(text.begin(), text.end()).size(), 62U);
}

TEST(RandomText, DiffersFromCallToCall) {
  std::set<std::string> seen;
  for (int i = 0; i < 1000; ++i) {
    seen.insert(RandomString("", 8));
  }
  EXPECT_EQ(seen.size(), 1000U);
}

TEST(RandomNumbers, StayBetweenTheirBoundsAndReachThem) {
  RandomInt die(1, 6);
  std::set<int> seen;
  for (int i = 0; i < 2000; ++i) {
    seen.insert(die.next());
  }
  EXPECT_EQ(seen, (std::set<int>{1, 2, 3, 4, 5, 6}));
  EXPECT_EQ(RandomInt(7, 7).next(), 7);
}

}  // namespace
