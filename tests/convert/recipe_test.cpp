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
