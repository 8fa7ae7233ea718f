#include "webapi/subtitles/dvd_pictures.h"

#include <gtest/gtest.h>

#include <string>
#include <string_view>

namespace webapi {
namespace {

using namespace std::string_literals;

// Two rows of four pixels at (1, 2): colours 1 1 2 2, and colour 3 to the end of the row. They are
// shown at once and hidden after 3 * 1024 / 90 ms.
const std::string kPacket =
    "\x00\x25\x00\x07"s              // the size, and where the commands begin
    "\x9a\x00\x03"s                  // the rows
    "\x00\x00\x00\x1f"s              // at once; the next list
    "\x03\x32\x10\x04\xff\xf0"s      // colours and opacities
    "\x05\x00\x10\x04\x00\x20\x03"s  // from 1 to 4, from 2 to 3
    "\x06\x00\x04\x00\x05"s          // where the rows begin
    "\x01\xff"s                      // shown
    "\x00\x03\x00\x1f\x02\xff"s;     // hidden; the last list

DvdScreen Screen() {
  return ReadDvdScreen("size: 720x480\npalette: 0a0b0c, ff0000, 00ff00, 0000ff\n");
}

TEST(DvdPictures, SizeAndColoursAreReadFromTheText) {
  const DvdScreen screen = Screen();
  EXPECT_EQ(screen.width, 720);
  EXPECT_EQ(screen.height, 480);
  EXPECT_EQ(screen.palette[0], 0x0a0b0cu);
  EXPECT_EQ(screen.palette[3], 0x0000ffu);
  EXPECT_EQ(screen.palette[4], 0u);
}

TEST(DvdPictures, AWrongTextLeavesTheUsualSize) {
  for (const char* text : {"", "size:", "size: 0x0", "size: 99999x99999", "palette: xyz"}) {
    EXPECT_EQ(ReadDvdScreen(text).width, 720) << text;
  }
}

TEST(DvdPictures, APictureHasItsPlaceItsTimesAndItsColours) {
  const auto picture = ReadDvdPicture(kPacket, 1000, Screen());
  ASSERT_TRUE(picture);
  EXPECT_EQ(picture->start, 1000);
  EXPECT_EQ(picture->end, 1034);
  EXPECT_EQ(picture->left, 1);
  EXPECT_EQ(picture->top, 2);
  EXPECT_EQ(picture->width, 4);
  ASSERT_EQ(picture->rows.size(), 2u);
  ASSERT_EQ(picture->rows[0].size(), 2u);
  EXPECT_EQ(picture->rows[0][0].length, 2);
  EXPECT_EQ(picture->rows[0][0].color, 1);
  EXPECT_EQ(picture->rows[0][1].color, 2);
  ASSERT_EQ(picture->rows[1].size(), 1u);
  EXPECT_EQ(picture->rows[1][0].length, 4);
  EXPECT_EQ(picture->rows[1][0].color, 3);
  EXPECT_EQ(picture->colors[0].opacity, 0);
  EXPECT_EQ(picture->colors[1].opacity, 255);
  EXPECT_EQ(picture->colors[1].rgb, 0xff0000u);
}

TEST(DvdPictures, APacketThatIsCutOffOrDamagedGivesRowsOfTheRightWidth) {
  for (size_t length = 0; length <= kPacket.size(); ++length) {
    for (size_t place = 0; place < length; ++place) {
      std::string packet = kPacket.substr(0, length);
      packet[place] = static_cast<char>(~packet[place]);
      const auto picture = ReadDvdPicture(packet, 0, Screen());
      for (const auto& row : picture ? picture->rows : std::vector<std::vector<PixelRun>>()) {
        int width = 0;
        for (const PixelRun& run : row) {
          width += run.length;
        }
        ASSERT_EQ(width, picture->width) << length << " " << place;
      }
    }
  }
}

TEST(DvdPictures, ListsOfCommandsThatNameEachOtherEnd) {
  std::string packet = kPacket;
  packet[0x1f + 3] = 0x07;  // the last list names the first one
  EXPECT_TRUE(ReadDvdPicture(packet, 0, Screen()));
}

}  // namespace
}  // namespace webapi
