#include "convert/recipe.h"

#include <gtest/gtest.h>

#include "support/sysroot.h"

namespace {

using convert::FindProfile;
using LibOrvoQMX::VideoMetaData;

// A film without a file.
class Known : public VideoMetaData {
 public:
  Known(int width, int height, int rotation = 0) {
    m_loaded = true;
    m_document["container_type"] = "matroska,webm";
    Json::Value video(Json::objectValue);
    video["codec"] = "h264";
    video["resolutionx"] = width;
    video["resolutiony"] = height;
    video["rotate"] = rotation;
    m_document["track_info"]["video"].append(video);
    m_document["track_info"]["audio"] = Json::Value(Json::arrayValue);
  }
  Known& Lasting(int seconds) {
    m_document["duration"] = seconds;
    return *this;
  }
  Known& WithTrack(const char* kind, const char* track, const char* codec, const char* language) {
    Json::Value& added = m_document["track_info"][kind].append(Json::Value(Json::objectValue));
    added["track"] = track;
    added["codec"] = codec;
    added["language"] = language;
    return *this;
  }
  Known& WithSound(const std::string& codec) {
    m_document["track_info"]["audio"][0]["codec"] = codec;
    return *this;
  }
};

std::string Size(const Known& film, const char* profile = "") {
  return convert::SizeFor(film, *FindProfile(profile));
}

TEST(ConversionRecipe, KeepsTheSizeOfAFilmUpToItsProfile) {
  EXPECT_EQ(Size({1920, 1080}), "1920x1080");
  EXPECT_EQ(Size({640, 360}), "640x360");
  EXPECT_EQ(Size({3840, 2160}), "1920x1080");
  EXPECT_EQ(Size({3840, 1600}), "1920x800");
  EXPECT_EQ(Size({1440, 1080}), "1440x1080");
  EXPECT_EQ(Size({1920, 1080}, "mp4-720p"), "1280x720");
  EXPECT_EQ(Size({1920, 1080}, "mp4-480p"), "854x480");
}

TEST(ConversionRecipe, MakesOddSizesEven) {
  EXPECT_EQ(Size({853, 481}), "854x482");
  EXPECT_EQ(Size({1, 1}), "2x2");
}

TEST(ConversionRecipe, ShowsAnUprightFilmInItsFullSize) {
  EXPECT_EQ(Size({1080, 1920}), "1080x1920");
  EXPECT_EQ(Size({3840, 2160, 90}), "1080x1920");
}

TEST(ConversionRecipe, HasAProfileWithoutAName) {
  EXPECT_EQ(FindProfile("")->name, std::string("mp4"));
  EXPECT_FALSE(FindProfile("avi"));
}

bool Has(const std::vector<std::string>& command, const std::string& option,
         const std::string& value) {
  for (size_t i = 0; i + 1 < command.size(); ++i) {
    if (command[i] == option && command[i + 1] == value) {
      return true;
    }
  }
  return false;
}

TEST(ConversionRecipe, TakesAllSoundsAndTheSubtitlesOfText) {
  Known film(640, 360);
  film.WithTrack("audio", "1", "ac3", "ger").WithTrack("audio", "2", "", "fre");
  film.WithTrack("audio", "3", "dts", "x; rm").WithTrack("subtitle", "4", "subrip", "eng");
  film.WithTrack("subtitle", "5", "hdmv_pgs_subtitle", "eng");
  const convert::WorkFolder folder("/volume1/@conversions/1");
  const auto work = convert::ConversionCommand(film, *FindProfile(""), folder, 0);
  EXPECT_TRUE(Has(work, "-map", "0:1") && Has(work, "-map", "0:3"));
  EXPECT_FALSE(Has(work, "-map", "0:2")) << "nothing can decode it";
  const auto join = convert::JoinCommand(film, folder, "/proc/self/fd/9");
  EXPECT_TRUE(Has(join, "-i", "file:/proc/self/fd/9"));
  EXPECT_TRUE(Has(join, "-map", "1:4"));
  EXPECT_FALSE(Has(join, "-map", "1:5"));
  EXPECT_TRUE(Has(join, "-metadata:s:a:0", "language=ger"));
  EXPECT_TRUE(Has(join, "-metadata:s:s:0", "language=eng"));
  for (const std::string& word : join) {
    EXPECT_EQ(word.find("x; rm"), std::string::npos) << "no code of a language";
  }
}

TEST(ConversionRecipe, ReadsTheFilmAgainOnlyForSubtitles) {
  const auto join = convert::JoinCommand(Known(640, 360), convert::WorkFolder("/f"), "/film");
  EXPECT_FALSE(Has(join, "-i", "file:/film"));
}

TEST(ConversionRecipe, AcceptsOnlyAWholeFilm) {
  Known film = Known(640, 360).Lasting(1000).WithSound("ac3");
  const auto difference = [&](const Known& joined) { return convert::Difference(film, joined); };
  EXPECT_EQ(difference(Known(640, 360).Lasting(1001).WithSound("aac")), "");
  EXPECT_NE(difference(Known(640, 360).Lasting(970).WithSound("aac")), "");
  EXPECT_NE(difference(Known(640, 360).Lasting(1030).WithSound("aac")), "");
  EXPECT_NE(difference(Known(640, 360).Lasting(1000)), "") << "its sound is missing";
  EXPECT_NE(difference(Known(640, 360).WithSound("aac")), "");
}

}  // namespace
