#include "policy/argument_helper.h"

#include <gtest/gtest.h>

#include "support/streams.h"

namespace {

using LibOrvoQMX::ArgumentHelper;
using LibOrvoQMX::QMXMetaData;
using List = std::vector<std::string>;

class Policy : public test::StreamTest {
 protected:
  // The record of a film with one video of these properties.
  QMXMetaData Video(const std::string& codec, unsigned width, unsigned height, int sarNum = 1,
                    int sarDen = 1) const {
    Json::Value record = test::FilmRecord("x");
    Json::Value& video = record["track_info"]["video"][0];
    video["codec"] = codec;
    video["resolutionx"] = width;
    video["resolutiony"] = height;
    video["sample_aspect_ratio_num"] = sarNum;
    video["sample_aspect_ratio_den"] = sarDen;
    return Load(record);
  }

  struct Size {
    unsigned width;
    unsigned height;
    bool operator==(const Size& other) const {
      return width == other.width && height == other.height;
    }
  };
  static Size Fit(const QMXMetaData& record, const std::string& name, bool exact, unsigned rotate) {
    Size size{7, 9};
    ArgumentHelper(record).GetTransVideoSize(name, exact, rotate, size.width, size.height);
    return size;
  }
};

unsigned Ask(const std::string& codec, unsigned width, unsigned height, float rate = 25,
             const std::string& tag = "", const std::string& profile = "") {
  return ArgumentHelper::AbleToHWTranscodeTheVideo(codec, width, height, rate, tag, profile);
}

TEST_F(Policy, NamesItsEncoders) {
  EXPECT_EQ(ArgumentHelper::GetAACEncoder(), "libfdk_aac");
  EXPECT_EQ(ArgumentHelper::GetMP3Encoder(), "libshine");
}

TEST_F(Policy, CallsAVideo4kAboveTheLimits) {
  const struct {
    unsigned width;
    unsigned height;
    bool is4k;
  } cases[] = {{1920, 1080, false}, {1920, 1088, true}, {2048, 858, true},   {1080, 1920, false},
               {1921, 100, true},   {1081, 1081, true}, {1080, 1081, false}, {0, 0, false},
               {3840, 2160, true},  {100, 1921, true}};
  for (const auto& row : cases) {
    EXPECT_EQ(ArgumentHelper::Is4kVideo(row.width, row.height), row.is4k)
        << row.width << "x" << row.height;
  }
}

TEST_F(Policy, EvansportAcceptsSomeCodecsAndSmallVideos) {
  On("evansport", [] {
    for (const char* codec : {"mpeg4", "h264", "mpeg2", "vc1", "wmv3"}) {
      EXPECT_EQ(Ask(codec, 3840, 2160), 0U) << codec;
    }
    EXPECT_EQ(Ask("rv40", 1280, 720), 0U);
    EXPECT_EQ(Ask("rv40", 1280, 800), 1U);
    EXPECT_EQ(Ask("vp9", 640, 360), 0U);
    EXPECT_EQ(Ask("vp9", 4000, 480), 0U);
    EXPECT_EQ(Ask("vp9", 640, 481), 1U);
    EXPECT_EQ(Ask("hevc", 1920, 1080), 1U);
    EXPECT_EQ(Ask("h264", 1920, 1080, 60, "DIVX", "High 10"), 0U);
    EXPECT_EQ(Ask("h264", 1920, 0), 1U);
  });
}

TEST_F(Policy, OnMonacoTheLastRuleWins) {
  On("monaco", [] {
    for (const char* codec : {"mpeg4", "h264", "mpeg2", "vc1", "wmv3", "hevc"}) {
      EXPECT_EQ(Ask(codec, 1920, 1080), 0U) << codec;
    }
    EXPECT_EQ(Ask("vp9", 1280, 720), 2U);
    EXPECT_EQ(Ask("", 1280, 720), 2U);
    EXPECT_EQ(Ask("hevc", 3840, 2160, 60, "", "Main"), 0U);
    EXPECT_EQ(Ask("hevc", 3840, 2160, 24, "", "Main 10"), 4U);
    EXPECT_EQ(Ask("hevc", 1280, 720, 24, "", "Main 10"), 4U);
    EXPECT_EQ(Ask("vc1", 3840, 2160), 3U);
    EXPECT_EQ(Ask("vp9", 3840, 2160), 3U);
    EXPECT_EQ(Ask("h264", 3840, 2160, 23.976F), 0U);
    EXPECT_EQ(Ask("h264", 3840, 2160, 24.1F), 5U) << "24.1 as a float is above 24.1";
    EXPECT_EQ(Ask("h264", 3840, 2160, 29.97F), 5U);
    EXPECT_EQ(Ask("h264", 1920, 1080, 60), 0U);
    EXPECT_EQ(Ask("h264", 3841, 2160, 30), 3U);
    EXPECT_EQ(Ask("hevc", 3840, 2161), 3U);
    EXPECT_EQ(Ask("h264", 4096, 2304, 30, "", "High 10"), 4U);
    EXPECT_EQ(Ask("mpeg4", 1280, 720, 25, "DIVX"), 2U);
    EXPECT_EQ(Ask("mpeg4", 3840, 2160, 25, "DIVX"), 2U);
    EXPECT_EQ(Ask("mpeg4", 1280, 720, 25, "divx"), 0U);
    EXPECT_EQ(Ask("mpeg4", 1280, 720, 25, "XVID"), 0U);
    EXPECT_EQ(Ask("h264", 1280, 720, 25, "DIVX"), 0U);
    EXPECT_EQ(Ask("h264", 1280, 720, 25, "", "Main 10"), 0U);
    EXPECT_EQ(Ask("hevc", 1280, 720, 25, "", "High 10"), 0U);
    EXPECT_EQ(Ask("h264", 1280, 0), 1U);
  });
}

TEST_F(Policy, TheVaapiPlatformsAcceptEveryVideoWithAHeight) {
  for (const char* platform : {"braswell", "apollolake"}) {
    On(platform, [] {
      EXPECT_EQ(Ask("anything", 10000, 10000, 500, "DIVX", "High 10"), 0U);
      EXPECT_EQ(Ask("", 0, 1), 0U);
      EXPECT_EQ(Ask("h264", 1920, 0), 1U);
    });
  }
}

TEST_F(Policy, OtherPlatformsHaveNoHardware) {
  for (const char* platform : {"avoton", "", "Braswell", "x86"}) {
    On(platform, [] { EXPECT_EQ(Ask("h264", 640, 360), 1U); });
  }
}

TEST_F(Policy, EachPlatformsRuleCanBeAskedAnywhere) {
  EXPECT_EQ(ArgumentHelper::EvansportAbleToHWTranscodeTheVideo("rv40", 1280, 721, 25, "", ""), 1U);
  EXPECT_EQ(ArgumentHelper::MonacoAbleToHWTranscodeTheVideo("vp9", 1280, 721, 25, "", ""), 2U);
  EXPECT_EQ(ArgumentHelper::BraswellAbleToHWTranscodeTheVideo("x", 1, 1, 25, "", ""), 0U);
  EXPECT_EQ(ArgumentHelper::ApolloLakeAbleToHWTranscodeTheVideo("x", 1, 1, 25, "", ""), 0U);
}

TEST_F(Policy, SoftwareTranscodesEveryVideoAndHardwareIsChecked) {
  Json::Value document = test::FilmRecord("x");
  document["track_info"]["video"][0]["profile"] = "High 10";
  On("monaco", [&] {
    const QMXMetaData tenBit = Load(document);
    EXPECT_EQ(ArgumentHelper(tenBit).AbleToTranscodeTheVideo(false), 0U);
    EXPECT_EQ(ArgumentHelper(tenBit).AbleToTranscodeTheVideo(true), 4U);
    const QMXMetaData nothing("none", "HTTP");
    EXPECT_EQ(ArgumentHelper(nothing).AbleToTranscodeTheVideo(false), 0U);
    EXPECT_EQ(ArgumentHelper(nothing).AbleToTranscodeTheVideo(true), 1U);
  });
}

TEST_F(Policy, KnowsTheBoxesOfTheSizeNames) {
  const struct {
    const char* name;
    unsigned width;
    unsigned height;
  } rows[] = {{"hd480", 852, 480},
              {"hd720", 1280, 720},
              {"hd1080", 1920, 1080},
              {"320x240", 320, 240},
              {"480x360", 480, 360}};
  for (const auto& row : rows) {
    unsigned width = 0;
    unsigned height = 0;
    EXPECT_TRUE(ArgumentHelper::MapVideoSize(row.name, width, height));
    EXPECT_EQ(width, row.width);
    EXPECT_EQ(height, row.height);
  }
  unsigned width = 7;
  unsigned height = 9;
  for (const char* name : {"", "HD720", "hd720 ", "640x480"}) {
    EXPECT_FALSE(ArgumentHelper::MapVideoSize(name, width, height)) << name;
  }
  EXPECT_EQ(width, 7U);
  EXPECT_EQ(height, 9U);
}

TEST_F(Policy, AnExactSizeIsTheBoxTurnedWithThePicture) {
  const QMXMetaData film = Video("h264", 1920, 1080);
  EXPECT_EQ(Fit(film, "hd720", true, 0), (Size{1280, 720}));
  EXPECT_EQ(Fit(film, "hd720", true, 90), (Size{720, 1280}));
  EXPECT_EQ(Fit(film, "hd720", true, 270), (Size{720, 1280}));
  EXPECT_EQ(Fit(film, "hd720", true, 180), (Size{1280, 720}));
  EXPECT_EQ(Fit(film, "unknown", true, 0), (Size{0, 0}));
  EXPECT_EQ(Fit(film, "", true, 0), (Size{7, 9}));
}

TEST_F(Policy, AFittedSizeKeepsTheShape) {
  EXPECT_EQ(Fit(Video("h264", 1440, 1080, 4, 3), "hd720", false, 0), (Size{1280, 720}));
  EXPECT_EQ(Fit(Video("h264", 720, 576), "hd720", false, 0), (Size{900, 720}));
  EXPECT_EQ(Fit(Video("h264", 1920, 1080), "hd1080", false, 90), (Size{606, 1080}));
  EXPECT_EQ(Fit(Video("h264", 1920, 800), "hd720", false, 0), (Size{1280, 532}));
  EXPECT_EQ(Fit(Video("h264", 1920, 800, 0, 0), "hd720", false, 0), (Size{1280, 532}));
  EXPECT_EQ(Fit(Video("h264", 1920, 800, 1, 0), "hd720", false, 0), (Size{1280, 532}));
  EXPECT_EQ(Fit(Video("h264", 1080, 1920), "hd480", false, 270), (Size{852, 478}));
}

TEST_F(Policy, AnUnknownSizeChangesNothing) {
  EXPECT_EQ(Fit(Video("h264", 1920, 1080), "unknown", false, 0), (Size{7, 9}));
  EXPECT_EQ(Fit(Video("h264", 0, 1080), "hd720", false, 0), (Size{7, 9}));
  EXPECT_EQ(Fit(Video("h264", 1920, 0), "hd720", false, 0), (Size{7, 9}));
  EXPECT_EQ(Fit(Video("h264", 1920, 1080), "", false, 0), (Size{7, 9}));
}

TEST_F(Policy, TheBitRateIsWhatTheSourceCanUse) {
  const auto rate = [this](const char* codec, unsigned width, unsigned height, unsigned source,
                           unsigned requested) {
    Json::Value record = test::FilmRecord("x");
    record["bitrate"] = source;
    record["track_info"]["video"][0]["codec"] = codec;
    record["track_info"]["video"][0]["resolutionx"] = width;
    record["track_info"]["video"][0]["resolutiony"] = height;
    const QMXMetaData film = Load(record);
    return ArgumentHelper(film).GetTransVideoBitrate(requested);
  };
  On("avoton", [&] {
    EXPECT_EQ(rate("h264", 1920, 1080, 2000000, 3000000), 2000000U);
    EXPECT_EQ(rate("hevc", 1920, 1080, 2000000, 3000000), 3000000U);
    EXPECT_EQ(rate("hevc", 1920, 1080, 2000000, 5000000), 4000000U);
    EXPECT_EQ(rate("h264", 1920, 1080, 2000000, 2000000), 2000000U);
    EXPECT_EQ(rate("h264", 1920, 1080, 0, 200000), 500000U);
    EXPECT_EQ(rate("h264", 1920, 1080, 0, 3000000), 3000000U);
    EXPECT_EQ(rate("h264", 1920, 1080, 100000, 3000000), 500000U);
    EXPECT_EQ(rate("h264", 1920, 1080, 2000000, 200000), 500000U);
    EXPECT_EQ(rate("h264", 3840, 2160, 2000000, 3000000), 2000000U);
  });
  for (const char* platform : {"braswell", "apollolake"}) {
    On(platform, [&] {
      EXPECT_EQ(rate("h264", 1920, 1080, 2000000, 3000000), 3000000U);
      EXPECT_EQ(rate("h264", 1920, 1080, 2000000, 3000001), 3000000U);
      EXPECT_EQ(rate("h264", 1920, 1080, 2500000, 3000000), 3000000U) << "compared after the cut";
      EXPECT_EQ(rate("h264", 1920, 1080, 1000000, 3000000), 1500000U);
      EXPECT_EQ(rate("hevc", 1920, 1080, 900000, 3000000), 2700000U);
      EXPECT_EQ(rate("hevc", 1920, 1080, 1100000, 3000000), 3000000U);
      EXPECT_EQ(rate("hevc", 1920, 1080, 1000000, 9000000), 3000000U);
      EXPECT_EQ(rate("h264", 3840, 2160, 9000000, 3000000), 6000000U);
      EXPECT_EQ(rate("h264", 3840, 2160, 2000000, 3000000), 4000000U);
      EXPECT_EQ(rate("h264", 3840, 2160, 0, 200000), 500000U);
      EXPECT_EQ(rate("h264", 3840, 2160, 0, 300000), 600000U);
    });
  }
  On("monaco", [&] { EXPECT_EQ(rate("h264", 3840, 2160, 2000000, 3000000), 2000000U); });
}

TEST_F(Policy, FindsAnAudioTrackByItsId) {
  const QMXMetaData film = Load(test::FilmRecord("x"));
  const ArgumentHelper policy(film);
  unsigned index = 9;
  EXPECT_EQ(policy.GetAudioTrackInfoByID("2", index)["codec"], "aac");
  EXPECT_EQ(index, 1U);
  EXPECT_EQ(policy.GetAudioTrackInfoByID("", index)["codec"], "ac3");
  EXPECT_EQ(index, 0U);
  index = 9;
  for (const char* id : {"0", "3", " 1", "01", "x"}) {
    EXPECT_TRUE(policy.GetAudioTrackInfoByID(id, index).isNull()) << id;
  }
  EXPECT_EQ(index, 9U);
  EXPECT_EQ(policy.GetAudioTrackInfoByID("1")["codec"], "ac3");
}

TEST_F(Policy, SkipsTracksThatLackAMember) {
  const QMXMetaData film = Load(test::ParseText(R"({"track_info":{"video":[],"audio":[
      {"id":"1","codec":"a"}, {"id":"1","track":"1"}, {"track":"1","codec":"c"}, 5, null,
      {"id":"1","track":"4","codec":"d"}]}})"));
  unsigned index = 9;
  EXPECT_EQ(ArgumentHelper(film).GetAudioTrackInfoByID("1", index)["codec"], "d");
  EXPECT_EQ(index, 5U);
}

TEST_F(Policy, ComparesTheCodecOfATrack) {
  const QMXMetaData film = Load(test::FilmRecord("x"));
  const ArgumentHelper policy(film);
  EXPECT_TRUE(policy.DoesAudioCodecMatch("", "ac3"));
  EXPECT_TRUE(policy.DoesAudioCodecMatch("2", "aac"));
  EXPECT_FALSE(policy.DoesAudioCodecMatch("2", "AAC"));
  EXPECT_FALSE(policy.DoesAudioCodecMatch("2", "ac3"));
  EXPECT_FALSE(policy.DoesAudioCodecMatch("7", ""));
}

TEST_F(Policy, DecodesEveryAudioTrackThatIsThere) {
  const QMXMetaData film = Load(test::FilmRecord("x"));
  const ArgumentHelper policy(film);
  EXPECT_TRUE(policy.AbleToDecodeAudio(""));
  EXPECT_TRUE(policy.AbleToDecodeAudio("2"));
  EXPECT_FALSE(policy.AbleToDecodeAudio("7"));
  EXPECT_TRUE(policy.AbleToDecodeAudioById("1"));
  EXPECT_FALSE(policy.AbleToDecodeAudioById("7"));
  EXPECT_TRUE(ArgumentHelper::AbleToDecodeAudioByCodec(""));
  EXPECT_TRUE(ArgumentHelper::AbleToDecodeAudioByCodec("anything"));
}

TEST_F(Policy, RecognisesAFilmWithoutSound) {
  const QMXMetaData film = Load(test::FilmRecord("x"));
  EXPECT_FALSE(ArgumentHelper(film).ZeroAudioTrack());
  const QMXMetaData silent = Load(test::ParseText(R"({"track_info":{"video":[],"audio":[]}})"));
  EXPECT_TRUE(ArgumentHelper(silent).ZeroAudioTrack());
}

TEST_F(Policy, MapsTracksForFfmpegByTheContainersIndex) {
  Json::Value record = test::FilmRecord("x");
  const QMXMetaData film = Load(record);
  EXPECT_EQ(ArgumentHelper(film).GetVideoAudioMap(""), (List{"-map", "0:0", "-map", "0:1"}));
  EXPECT_EQ(ArgumentHelper(film).GetVideoAudioMap("2"), (List{"-map", "0:0", "-map", "0:2"}));
  EXPECT_EQ(ArgumentHelper(film).GetVideoAudioMap("7"), List{});

  record["track_info"]["audio"][0]["track"] = "2";
  const QMXMetaData gap = Load(record);
  EXPECT_EQ(ArgumentHelper(gap).GetVideoAudioMap(""), (List{"-map", "0:0", "-map", "0:2"}));
}

TEST_F(Policy, MapsNothingUnlessThereIsAPictureAndASound) {
  for (const char* text :
       {R"({"track_info":{"video":[{"track":"0"}],"audio":[]}})",
        R"({"track_info":{"video":[],"audio":[{"id":"1","track":"1","codec":"ac3"}]}})",
        R"({"track_info":{"video":[{}],"audio":[{"id":"1","track":"1","codec":"ac3"}]}})",
        R"({"track_info":{"video":[{"track":"0"}],"audio":[{"id":"1","codec":"ac3"}]}})",
        R"({"track_info":{"video":[{"track":"0"}],"audio":[{"id":"1","track":"","codec":"a"}]}})",
        R"({"track_info":{"video":[{"track":"0"}]}})", "{}"}) {
    const QMXMetaData film = Load(test::ParseText(text));
    EXPECT_EQ(ArgumentHelper(film).GetVideoAudioMap(""), List{}) << text;
  }
}

TEST_F(Policy, MapsAudioForGstreamerByItsPositionAmongTheAudioTracks) {
  const QMXMetaData film = Load(test::FilmRecord("x"));
  EXPECT_EQ(ArgumentHelper(film).GetGstreamAudioMap(""), (List{"--aidx", "0"}));
  EXPECT_EQ(ArgumentHelper(film).GetGstreamAudioMap("2"), (List{"--aidx", "1"}));
  EXPECT_EQ(ArgumentHelper(film).GetGstreamAudioMap("7"), List{});
}

}  // namespace
