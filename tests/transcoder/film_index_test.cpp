#include "transcoder/film_index.h"

#include <gtest/gtest.h>

#include "support.h"

namespace orvo::transcoder {
namespace {

// Packets of `length` bytes with the sync byte behind the first `before`.
std::string Packets(size_t before, size_t length) {
  std::string stream;
  for (int i = 0; i < 8; ++i) {
    std::string packet(length, '\xFF');
    packet[before] = 0x47;
    stream += packet;
  }
  return stream;
}

bool LacksIndexWith(const std::string& content) {
  const test::TempDir dir;
  test::WriteText(dir.Path("film"), content);
  return LacksIndex(dir.Path("film"));
}

TEST(FilmWithoutIndex, IsATransportStreamInAnyPacketLayout) {
  EXPECT_TRUE(LacksIndexWith(Packets(0, 188)));
  EXPECT_TRUE(LacksIndexWith(Packets(4, 192)));
  EXPECT_TRUE(LacksIndexWith(Packets(0, 204)));
  EXPECT_TRUE(LacksIndex(test::MediaPath("mpeg2_mp2.ts")));
}

TEST(FilmWithoutIndex, IsAProgramStream) {
  EXPECT_TRUE(LacksIndexWith(std::string("\0\0\1\xBA rest", 9)));
}

TEST(FilmWithoutIndex, IsNoOtherFilm) {
  for (const char* name : {"h264_ac3.mkv", "h264_aac.mp4", "mpeg4_mp3.avi", "vp9_opus.webm"}) {
    EXPECT_FALSE(LacksIndex(test::MediaPath(name))) << name;
  }
}

TEST(FilmWithoutIndex, IsNothingThatCannotBeRead) {
  EXPECT_FALSE(LacksIndex("/nonexistent/film.ts"));
  EXPECT_FALSE(LacksIndex("/"));
  EXPECT_FALSE(LacksIndex("/dev/zero"));
  EXPECT_FALSE(LacksIndexWith(""));
  EXPECT_FALSE(LacksIndexWith("G"));
}

}  // namespace
}  // namespace orvo::transcoder
