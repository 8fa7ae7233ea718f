#include "webapi/http/work.h"

#include <gtest/gtest.h>

#include <vector>

#include "support/processes.h"
#include "support/sysroot.h"

namespace {

using webapi::Transfer;

class Places : public test::Sysroot {};

TEST_F(Places, AreRefusedWhereTheirFolderCannotBeUsed) {
  Write("/tmp/Mirevo/work", "a file");
  EXPECT_FALSE(webapi::TakePlace(webapi::kFilmWork));
  EXPECT_FALSE(Transfer::Begin("anna"));
}

TEST_F(Places, AreFreeAgainWithTheirHolder) {
  const webapi::Work single{"single", {1, 0, 0}};
  auto place = webapi::TakePlace(single);
  ASSERT_TRUE(place);
  EXPECT_FALSE(webapi::TakePlace(single));
  place.reset();
  EXPECT_TRUE(webapi::TakePlace(single));
}

TEST_F(Places, ForFilesAreLimitedForEachClient) {
  std::vector<Transfer> held;
  for (int i = 0; i < webapi::kTransfersOfClient; ++i) {
    auto next = Transfer::Begin("anna");
    ASSERT_TRUE(next) << i;
    held.push_back(std::move(*next));
  }
  EXPECT_FALSE(Transfer::Begin("anna"));
  EXPECT_TRUE(Transfer::Begin("bob"));
  held.pop_back();
  EXPECT_TRUE(Transfer::Begin("anna"));
}

}  // namespace
