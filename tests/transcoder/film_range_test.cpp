#include "transcoder/film_range.h"

#include <gtest/gtest.h>

#include "support.h"

namespace orvo::transcoder {
namespace {

std::optional<HighRange> RangeOf(const std::string& content) {
  const test::TempDir folder;
  test::WriteText(folder.Path("film"), content);
  return FindHighRange(folder.Path("film"));
}

std::string Box(const std::string& name, const std::string& content) {
  return std::string("\0\0", 2) + static_cast<char>((content.size() + 8) / 256) +
         static_cast<char>((content.size() + 8) % 256) + name + content;
}

// A film with a track of this description behind its pictures.
std::string Mp4(const std::string& description) {
  const std::string table = Box("stbl", Box("stsd", description));
  return Box("ftyp", "isom") + Box("mdat", std::string(9000, 'x')) +
         Box("moov", Box("mvhd", "") + Box("trak", Box("mdia", Box("minf", table))));
}

TEST(FilmRange, IsWhatTheContainerStates) {
  const auto pq = RangeOf(Mp4(std::string("hvc1....colrnclx\0\x09\0\x10\0\x09\x80", 23)));
  ASSERT_TRUE(pq);
  EXPECT_EQ(pq->transfer, 16);
  EXPECT_EQ(pq->primaries, 9);
  EXPECT_EQ(pq->matrix, 9);
  EXPECT_TRUE(pq->isFull);
  const auto hlg = RangeOf("\x1A\x45\xDF\xA3 ... \x55\xBA\x81\x12\x55\xBB\x81\x0C");
  ASSERT_TRUE(hlg);
  EXPECT_EQ(hlg->transfer, 18);
  EXPECT_EQ(hlg->primaries, 12);
  EXPECT_EQ(hlg->matrix, 9) << "nothing is stated";
  EXPECT_FALSE(hlg->isFull);
  EXPECT_FALSE(RangeOf(Mp4(std::string("hvc1....colrnclx\0\1\0\1\0\1\0", 23))));
}

TEST(FilmRange, IsLookedForInsideOnlyWhereTheCodecMayHaveMoreThanEightBits) {
  EXPECT_TRUE(HidesItsRange(test::MediaPath("hevc10_aac.mov")));
  for (const char* name : {"h264_aac.mp4", "h264_ac3.mkv", "portrait.mp4", "mpeg4_mp3.avi",
                           "mpeg2_mp2.ts", "vp9_opus.webm"}) {
    EXPECT_FALSE(HidesItsRange(test::MediaPath(name))) << name;
  }
}

TEST(FilmRange, IsStandardWhereTheFilmDoesNotSayOtherwise) {
  EXPECT_FALSE(FindHighRange(test::MediaPath("hevc10_aac.mov")));
}

TEST(FilmRange, IsStandardInWhatIsNoFilm) {
  // Boxes that claim to be longer than the film, and ones that are shorter than their own header.
  for (const std::string& content :
       {std::string(), std::string("\0\0\0\1moov\xFF\xFF\xFF\xFF\xFF\xFF\xFF\xFFhvc1", 20),
        std::string("\0\0\0\7moovhvc1\0\0\0\0", 16),
        std::string("\0\0\0\x14moov\0\0\0\x0Ahvc1abcd", 20), std::string("G\0\2\xB0\xFF", 5),
        std::string("\x1A\x45\xDF\xA3\x63\xA2", 6)}) {
    EXPECT_FALSE(RangeOf(content)) << content;
  }
  EXPECT_FALSE(FindHighRange("/nonexistent"));
  EXPECT_FALSE(FindHighRange("/dev/zero"));
}

}  // namespace
}  // namespace orvo::transcoder
