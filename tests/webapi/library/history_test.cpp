#include "webapi/library/history.h"

#include <gtest/gtest.h>

namespace {

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

}  // namespace
