#include "stream/cmaf/kept_segments.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <ctime>
#include <string>
#include <vector>

#include "contract/cmaf.h"
#include "stream/cmaf/cmaf_runs.h"
#include "support/streams.h"

namespace {

using LibOrvoQMX::CmafFolder;
using LibOrvoQMX::KeepCmafWithin;
using test::kId;

constexpr int kBytes = 1000;
constexpr time_t kHour = 3600;

class KeptCmafSegments : public test::StreamTest {
 protected:
  void SetUp() override {
    StreamTest::SetUp();
    for (const char* const rendition : {"copy-video", "stereo-0"}) {
      MakeDirectory(Directory("CMAF") + "/" + rendition);
    }
  }

  static std::string File(const std::string& rendition, const std::string& name) {
    return Directory("CMAF") + "/" + rendition + "/" + name;
  }

  // A file that was made so many seconds ago.
  void Make(const std::string& rendition, const std::string& name, time_t age) const {
    Write(File(rendition, name), std::string(kBytes, 'x'));
    const timespec made{time(nullptr) - age, 0};
    const timespec times[] = {made, made};
    ASSERT_EQ(utimensat(AT_FDCWD, Path(File(rendition, name)).c_str(), times, 0), 0);
  }
  void MakeSegment(const std::string& rendition, int number, time_t age) const {
    Make(rendition, orvo::CmafSegmentName(number), age);
  }

  bool Has(const std::string& rendition, const std::string& name) const {
    return access(Path(File(rendition, name)).c_str(), F_OK) == 0;
  }
  std::vector<int> Left(const std::string& rendition) const {
    std::vector<int> left;
    for (int number = 0; number < 100; ++number) {
      if (Has(rendition, orvo::CmafSegmentName(number))) {
        left.push_back(number);
      }
    }
    return left;
  }
};

TEST_F(KeptCmafSegments, StayWhileThereIsRoom) {
  MakeSegment("copy-video", 0, kHour);
  KeepCmafWithin(kId, kBytes);
  EXPECT_EQ(Left("copy-video"), std::vector<int>{0});
}

TEST_F(KeptCmafSegments, GoTheOldestFirstOfAllRenditions) {
  MakeSegment("copy-video", 0, kHour);
  MakeSegment("copy-video", 1, 3 * kHour);
  MakeSegment("stereo-0", 0, 4 * kHour);
  MakeSegment("stereo-0", 1, 2 * kHour);
  KeepCmafWithin(kId, 2 * kBytes);
  EXPECT_EQ(Left("copy-video"), std::vector<int>{0});
  EXPECT_EQ(Left("stereo-0"), std::vector<int>{1});
}

TEST_F(KeptCmafSegments, StayNearARequestedOneInEachRendition) {
  CmafFolder(kId, "copy-video").AskFor(50);
  for (const int number : {20, 49, 50, 60, 90}) {
    MakeSegment("copy-video", number, kHour);
    MakeSegment("stereo-0", number, kHour);
  }
  KeepCmafWithin(kId, 0);
  EXPECT_EQ(Left("copy-video"), (std::vector<int>{49, 50, 60}));
  EXPECT_EQ(Left("stereo-0"), (std::vector<int>{49, 50, 60}));
}

TEST_F(KeptCmafSegments, StayWhenTheyWereMadeJustNow) {
  MakeSegment("copy-video", 0, 0);
  KeepCmafWithin(kId, 0);
  EXPECT_EQ(Left("copy-video"), std::vector<int>{0});
}

TEST_F(KeptCmafSegments, AreTheOnlyFilesThatGo) {
  for (const char* const name : {"init.mp4", "00007.m4s.part", "position", "7.m4s"}) {
    Make("copy-video", name, kHour);
  }
  KeepCmafWithin(kId, 0);
  for (const char* const name : {"init.mp4", "00007.m4s.part", "position", "7.m4s"}) {
    EXPECT_TRUE(Has("copy-video", name)) << name;
  }
}

TEST_F(KeptCmafSegments, OfNoStreamAreNone) {
  KeepCmafWithin("", 0);
  KeepCmafWithin("gone", 0);
}

TEST_F(KeptCmafSegments, AreLookedAtOnlyAfterTheRunHasBegunAnother) {
  LibOrvoQMX::CmafKeeper keeper(kId, 0);
  MakeSegment("copy-video", 0, kHour);
  keeper.Look(7);
  EXPECT_TRUE(Left("copy-video").empty());

  MakeSegment("copy-video", 1, kHour);
  keeper.Look(7);
  EXPECT_EQ(Left("copy-video"), std::vector<int>{1});
  keeper.Look(8);
  EXPECT_TRUE(Left("copy-video").empty());
}

}  // namespace
