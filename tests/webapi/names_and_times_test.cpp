#include <gtest/gtest.h>

#include "webapi/history.h"
#include "webapi/request.h"
#include "webapi/search.h"

namespace {

TEST(FoldCase, MakesTheLettersOfAllScriptsSmall) {
  EXPECT_EQ(webapi::FoldCase("Film 1 ÄÖÜ ÉΣ ПРИВЕТ"), "film 1 äöü éσ привет");
}

TEST(FoldCase, LeavesBytesThatAreNoTextAsTheyAre) {
  EXPECT_EQ(webapi::FoldCase("CAF\xe9.MKV"), "caf\xe9.mkv");
  EXPECT_EQ(webapi::FoldCase("A\xc3"), "a\xc3");
  EXPECT_EQ(webapi::FoldCase(""), "");
}

TEST(History, AFilmIsFinishedNearItsEnd) {
  EXPECT_FALSE(webapi::IsFinished(0, 0));
  EXPECT_FALSE(webapi::IsFinished(0, 7200));
  EXPECT_FALSE(webapi::IsFinished(6800, 7200));
  EXPECT_TRUE(webapi::IsFinished(6841, 7200));
  EXPECT_FALSE(webapi::IsFinished(540, 600));
  EXPECT_TRUE(webapi::IsFinished(541, 600));
}

TEST(History, AShortClipIsNotFinishedAMinuteBeforeItsEnd) {
  EXPECT_FALSE(webapi::IsFinished(10, 60));
  EXPECT_FALSE(webapi::IsFinished(57, 60));
  EXPECT_TRUE(webapi::IsFinished(58, 60));
}

TEST(Request, TakesTimesWithAndWithoutAFraction) {
  webapi::Request request;
  ASSERT_TRUE(request.AddParameters("a=12&b=12.5&c=%2212.25%22&d=-1&e=1e3&f=nan&g=12s&h=&i=inf"));
  EXPECT_EQ(request.Seconds("a", 100), 12);
  EXPECT_EQ(request.Seconds("b", 100), 12.5);
  EXPECT_EQ(request.Seconds("c", 100), 12.25);
  EXPECT_FALSE(request.Seconds("a", 11.5));
  for (const char* name : {"d", "e", "f", "g", "h", "i", "absent"}) {
    EXPECT_FALSE(request.Seconds(name, 10000)) << name;
  }
}

}  // namespace
