#include "webapi/library/search.h"

#include <gtest/gtest.h>

namespace {

TEST(FoldCase, LowersTheLettersOfAllScripts) {
  EXPECT_EQ(webapi::FoldCase("Film 1 ÄÖÜ ÉΣ ПРИВЕТ"), "film 1 äöü éσ привет");
}

TEST(FoldCase, LeavesInvalidBytesUnchanged) {
  EXPECT_EQ(webapi::FoldCase("CAF\xe9.MKV"), "caf\xe9.mkv");
  EXPECT_EQ(webapi::FoldCase("A\xc3"), "a\xc3");
  EXPECT_EQ(webapi::FoldCase(""), "");
}

}  // namespace
