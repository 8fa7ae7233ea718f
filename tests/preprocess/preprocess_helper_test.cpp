#include "preprocess/preprocess_helper.h"

#include <gtest/gtest.h>

#include <limits>

#include "support/sysroot.h"

namespace {

using LibOrvoQMX::HLSHelper;
using LibOrvoQMX::MANIFEST_TYPE_VIDEO;
using namespace LibOrvoQMX::preprocess;
using Times = std::vector<double>;

constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();
constexpr double kInfinity = std::numeric_limits<double>::infinity();

class Planner : public test::Sysroot {
 protected:
  // The plan of a film with key frames at these times.
  PreprocessHelper Plan(const Times& keyframes, double end, int length = 8) const {
    PreprocessResultWrapper result;
    for (const double time : keyframes) {
      result.PushPtsTime(time);
    }
    result.set_end_time(end);
    const std::string film = Path("/volume1/film.mkv");
    MakeDirectory("/volume1/@ea/film.mkv");
    EXPECT_TRUE(result.WriteToFile(PreprocessUtil::GetPreprocessResultPath(film)));
    return {film, length};
  }

  // The playlist of a plan; "(none)" where it declines.
  std::string Playlist(const PreprocessHelper& plan) const {
    HLSHelper manifest(Path("/playlist"), MANIFEST_TYPE_VIDEO, "u?x");
    if (!plan.WriteManifest(manifest)) {
      manifest.close();
      EXPECT_EQ(Read("/playlist"), "");
      return "(none)";
    }
    manifest.close();
    return Read("/playlist");
  }

  // The starts in milliseconds, up to the end of the plan.
  static std::vector<int> Starts(const PreprocessHelper& plan) {
    std::vector<int> starts;
    for (unsigned n = 0; plan.GetSeekTime(n) >= 0; ++n) {
      starts.push_back(plan.GetSeekTime(n));
    }
    return starts;
  }
};

TEST_F(Planner, EndsFragmentsAtTheFirstKeyFrameAtOrAfterTheNominalEnd) {
  Times even;
  for (int i = 0; i < 20; ++i) {
    even.push_back(2 * i);
  }
  EXPECT_EQ(Starts(Plan(even, 40)), (std::vector<int>{0, 8000, 16000, 24000, 32000}));
  EXPECT_EQ(Playlist(Plan({0, 3, 9, 20}, 26.5)),
            "#EXTM3U\n#EXT-X-VERSION:3\n#EXT-X-TARGETDURATION:11\n#EXT-X-MEDIA-SEQUENCE:0\n"
            "#EXTINF:9.000,\nu?x&fragment_id=00000\n"
            "#EXTINF:11.000,\nu?x&fragment_id=00001\n"
            "#EXTINF:6.500,\nu?x&fragment_id=00002\n"
            "#EXT-X-ENDLIST\n");
}

TEST_F(Planner, MakesOneFragmentOfALoneKeyFrame) {
  EXPECT_EQ(Playlist(Plan({12.5}, 30)),
            "#EXTM3U\n#EXT-X-VERSION:3\n#EXT-X-TARGETDURATION:30\n#EXT-X-MEDIA-SEQUENCE:0\n"
            "#EXTINF:30.000,\nu?x&fragment_id=00000\n#EXT-X-ENDLIST\n");
}

TEST_F(Planner, GrowsWithTheGapsBetweenKeyFrames) {
  const std::string playlist = Playlist(Plan({0, 20, 50.2}, 60));
  EXPECT_NE(playlist.find("TARGETDURATION:31\n"), std::string::npos) << playlist;
  EXPECT_EQ(Starts(Plan({0, 20, 50.2}, 60)), (std::vector<int>{0, 20000, 50200}));
}

TEST_F(Planner, UsesAKeyFrameAtTheNominalEndButNoneJustAfterTheLastOne) {
  EXPECT_EQ(Starts(Plan({0, 8, 16}, 20)), (std::vector<int>{0, 8000, 16000}));
  // 20 is past the second nominal end; a fragment of half a millisecond is none.
  EXPECT_EQ(Starts(Plan({0, 20, 20.0005, 25}, 30)), (std::vector<int>{0, 20000, 25000}));
  EXPECT_EQ(Starts(Plan({0, 20, 20.0015, 25}, 30)), (std::vector<int>{0, 20000, 20001, 25000}));
}

TEST_F(Planner, HasNoPlanForAnEndThatDoesNotFit) {
  EXPECT_TRUE(Plan({0, 2}, 61.9).IsAvailable());
  for (const double end : {62.0, 0.0, -1.0, kNaN, kInfinity}) {
    const PreprocessHelper plan = Plan({0, 2}, end);
    EXPECT_FALSE(plan.IsAvailable()) << end;
    EXPECT_EQ(plan.GetSeekTime(0), -1);
    EXPECT_EQ(Playlist(plan), "(none)");
  }
  EXPECT_FALSE(Plan({0}, 60).IsAvailable());
  EXPECT_TRUE(Plan({0, 100}, 40.1).IsAvailable());
  EXPECT_FALSE(Plan({}, 30).IsAvailable());
}

TEST_F(Planner, HasNoPlanWithoutAResult) {
  EXPECT_FALSE(PreprocessHelper().IsAvailable());
  EXPECT_FALSE(PreprocessHelper("", 8).IsAvailable());
  EXPECT_FALSE(PreprocessHelper(Path("/volume1/other.mkv"), 8).IsAvailable());
  Write("/volume1/@ea/bad.mkv/ORVOVIDEO_PREPROCESS_V1", "\x0a\x09");
  EXPECT_FALSE(PreprocessHelper(Path("/volume1/bad.mkv"), 8).IsAvailable());
}

TEST_F(Planner, EndsWithAnyTimes) {
  const Times odd[] = {{0, kNaN, 30},       {0, 9, kInfinity, 30}, {0, 1e300, 5, 30},
                       {0, 40, 20, 10, 30}, {kNaN, 1, 30},         {0, -5, 30}};
  for (const Times& times : odd) {
    for (const int length : {8, 0, -1}) {
      const PreprocessHelper plan = Plan(times, 31, length);
      EXPECT_LE(Starts(plan).size(), times.size() + 1);
    }
  }
}

TEST_F(Planner, HasNoPlanForKeyFramesThatNoFilmHas) {
  for (const double odd : {kNaN, kInfinity, -kInfinity, 1e300}) {
    EXPECT_FALSE(Plan({0, odd, 9, 17.3, 24}, 30).IsAvailable()) << odd;
  }
}

TEST_F(Planner, AnswersTheLengthOfAFragmentInWholeSeconds) {
  PreprocessHelper plan;
  EXPECT_EQ(plan.UpdateCurrentFragment(1, 4.25, 3), 4);
  EXPECT_EQ(plan.UpdateCurrentFragment(1, 5, 3), 4);
  EXPECT_EQ(plan.UpdateCurrentFragment(0, kNaN, 3), 0);
  EXPECT_EQ(plan.UpdateCurrentFragment(0, 1e30, 3), std::numeric_limits<int>::max());
}

TEST_F(Planner, RoundsStartsDown) {
  EXPECT_EQ(Starts(Plan({0, 8.0089}, 12)), (std::vector<int>{0, 8008}));
}

}  // namespace
