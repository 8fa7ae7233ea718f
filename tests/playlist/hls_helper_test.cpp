#include "stream/hls_helper.h"

#include <gtest/gtest.h>

#include <limits>

#include "support/sysroot.h"

namespace {

using namespace LibOrvoQMX;

class Playlist : public test::Sysroot {
 protected:
  std::string Lines(ManifestType type, const std::string& quote,
                    const std::vector<HLSFragment>& fragments) const {
    HLSHelper playlist(Path("/playlist"), type, "u?x");
    EXPECT_TRUE(playlist.is_open());
    playlist.SetFragmentIdQuote(quote);
    for (const HLSFragment& fragment : fragments) {
      playlist.WriteFragmentInfo(fragment);
    }
    playlist.close();
    return Read("/playlist");
  }
};

TEST_F(Playlist, OfVideoBeginsAndEnds) {
  {
    HLSHelper playlist(Path("/playlist"), MANIFEST_TYPE_VIDEO, "u");
    playlist.WriteHeader(12345);
    playlist.WriteEnder();
  }
  EXPECT_EQ(Read("/playlist"),
            "#EXTM3U\n#EXT-X-VERSION:3\n#EXT-X-TARGETDURATION:12345\n#EXT-X-MEDIA-SEQUENCE:0\n"
            "#EXT-X-ENDLIST\n");
}

TEST_F(Playlist, OfSubtitlesBeginsWithTwoMoreLines) {
  {
    HLSHelper playlist(Path("/playlist"), MANIFEST_TYPE_SUBTITLE, "u");
    playlist.WriteHeader(8);
  }
  EXPECT_EQ(Read("/playlist"),
            "#EXTM3U\n#EXT-X-VERSION:3\n#EXT-X-TARGETDURATION:8\n#EXT-X-MEDIA-SEQUENCE:0\n"
            "#EXT-X-PLAYLIST-TYPE:VOD\n#EXT-X-ALLOW-CACHE:YES\n");
}

TEST_F(Playlist, NumbersVideoFragments) {
  EXPECT_EQ(Lines(MANIFEST_TYPE_VIDEO, "%22", {{5, 35, 40, 7}}),
            "#EXTINF:5.000,\nu?x&fragment_id=%2200007%22\n");
  EXPECT_EQ(Lines(MANIFEST_TYPE_VIDEO, "", {{4.1234, 0, 5, 99999}, {0.0005, 0, 5, 1234567}}),
            "#EXTINF:4.123,\nu?x&fragment_id=99999\n#EXTINF:0.001,\nu?x&fragment_id=1234567\n");
}

TEST_F(Playlist, GivesSubtitleTimesInWholeSeconds) {
  EXPECT_EQ(Lines(MANIFEST_TYPE_SUBTITLE, "%22", {{2, 10, 12, 7}, {3.1, 4.9, -1.9, 8}}),
            "#EXTINF:2.000,\nu?x&preview=false&output_webvtt=true&webvtt_start_time=10"
            "&webvtt_end_time=12\n"
            "#EXTINF:3.100,\nu?x&preview=false&output_webvtt=true&webvtt_start_time=4"
            "&webvtt_end_time=-1\n");
}

TEST_F(Playlist, KeepsSubtitleTimesInRange) {
  const double none = std::numeric_limits<double>::quiet_NaN();
  const std::string lines =
      Lines(MANIFEST_TYPE_SUBTITLE, "", {{1, -1e300, 1e300, 0}, {1, none, 2147483646.9, 0}});
  EXPECT_NE(lines.find("start_time=-2147483648&webvtt_end_time=2147483647\n"), std::string::npos);
  EXPECT_NE(lines.find("start_time=0&webvtt_end_time=2147483646\n"), std::string::npos);
}

TEST_F(Playlist, ReplacesTheOldContent) {
  Write("/playlist", std::string(1000, 'x'));
  EXPECT_EQ(Lines(MANIFEST_TYPE_VIDEO, "", {}), "");
}

TEST_F(Playlist, ThatCannotBeOpenedIsAFailure) {
  EXPECT_FALSE(HLSHelper(Path("/missing/playlist"), MANIFEST_TYPE_VIDEO, "u").is_open());
}

}  // namespace
