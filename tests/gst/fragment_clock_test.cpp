#include "gst/fragment_clock.h"

#include <gtest/gtest.h>

#include <string>
#include <string_view>

namespace {

using namespace std::string_literals;

std::string Number(uint64_t number, int length) {
  std::string bytes;
  for (int shift = 8 * (length - 1); shift >= 0; shift -= 8) {
    bytes += static_cast<char>(number >> shift);
  }
  return bytes;
}

std::string Box(const char* name, const std::string& content) {
  return Number(content.size() + 8, 4) + name + content;
}

std::string Track(uint32_t id, uint32_t rate) {
  const std::string times = Number(0, 8);
  return Box("trak", Box("tkhd", Number(0, 4) + times + Number(id, 4)) +
                         Box("mdia", Box("mdhd", Number(0, 4) + times + Number(rate, 4))));
}

// Where two tracks begin, in ticks. The second time has 8 bytes.
std::string Fragment(uint64_t first, uint64_t second) {
  const auto part = [](uint32_t id, const std::string& time) {
    return Box("traf", Box("tfhd", Number(0, 4) + Number(id, 4)) + Box("tfdt", time));
  };
  return Box("moof", part(1, Number(0, 4) + Number(first, 4)) +
                         part(2, Number(0x01000000, 4) + Number(second, 8)));
}

std::string Set(orvo::gst::FragmentClock& clock, std::string piece) {
  clock.Set({reinterpret_cast<uint8_t*>(piece.data()), piece.size()});
  return piece;
}

const std::string kHeader = Box("ftyp", "iso5") + Box("moov", Track(1, 1000) + Track(2, 48000));

TEST(FragmentClock, CountsInTheTicksOfEachTrack) {
  orvo::gst::FragmentClock clock(2.5);
  EXPECT_EQ(Set(clock, kHeader + Fragment(0, 96)), kHeader + Fragment(2500, 120096));
}

TEST(FragmentClock, LeavesTheMediaAsTheyAre) {
  orvo::gst::FragmentClock clock(1);
  Set(clock, kHeader);
  const std::string media = Box("mdat", Fragment(3, 4));
  EXPECT_EQ(Set(clock, media.substr(0, 8)), media.substr(0, 8));
  EXPECT_TRUE(clock.Skip(10));
  EXPECT_FALSE(clock.Skip(media.size()));
  const std::string rest = media.substr(18);
  EXPECT_EQ(Set(clock, rest + Fragment(5, 6)), rest + Fragment(1005, 48006));
}

TEST(FragmentClock, LeavesATimeThatWouldBeTooLong) {
  orvo::gst::FragmentClock clock(5e6);
  Set(clock, kHeader);
  EXPECT_EQ(Set(clock, Fragment(1, 0)), Fragment(1, 240000000000));
}

TEST(FragmentClock, EndsWithDamagedBoxes) {
  orvo::gst::FragmentClock clock(1);
  for (const std::string& bytes :
       {"\0\0\0\0moof"s, "\xff\xff\xff\xffmoof\0\0\0\x40traf"s, Box("tfdt", ""), "moo"s}) {
    EXPECT_EQ(Set(clock, bytes), bytes);
  }
}

}  // namespace
