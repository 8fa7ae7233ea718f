// The bytes of a sealed ticket.
#include "webapi/cluster/opening.h"

#include <gtest/gtest.h>

namespace {

using webapi::Opening;
using webapi::Pack;
using webapi::Unpack;

Opening AnOpening() {
  return {1'700'000'000,
          0xfedcba9876543210,
          7,
          {{"path", "/films/ä \"quoted\".mkv"}, {"kind", "HLS"}, {"audio_id", "1"}}};
}

TEST(Openings, ComeOutAsTheyWentIn) {
  const auto read = Unpack(Pack(AnOpening()));
  ASSERT_TRUE(read);
  EXPECT_EQ(read->issued, AnOpening().issued);
  EXPECT_EQ(read->film, AnOpening().film);
  EXPECT_EQ(read->plan, AnOpening().plan);
  EXPECT_EQ(read->words, AnOpening().words);
}

TEST(Openings, KeepWordsOfAnyUsualLength) {
  for (const size_t length : {1U, 127U, 128U, 255U, 256U, 4096U}) {
    Opening opening = AnOpening();
    opening.words["path"] = std::string(length, 'x');
    const auto read = Unpack(Pack(opening));
    ASSERT_TRUE(read);
    EXPECT_EQ(read->words, opening.words);
  }
}

TEST(Openings, LeaveOutEmptyAndUnknownWords) {
  Opening opening = AnOpening();
  opening.words["sound"] = "";
  opening.words["why"] = "The film's codec is not one of the client's.";
  EXPECT_EQ(Unpack(Pack(opening))->words, AnOpening().words);
}

TEST(Openings, ReadWhatANewerReleaseAdded) {
  const auto read = Unpack(Pack(AnOpening()) + std::string("\x7f\x03new", 5));
  ASSERT_TRUE(read);
  EXPECT_EQ(read->words, AnOpening().words);
}

TEST(Openings, RefuseBytesThatAreNotWhole) {
  const std::string bytes = Pack({1, 2, 3, {{"path", "/a"}}});
  const size_t shortest = bytes.size() - 4;
  for (size_t length = 0; length < bytes.size(); ++length) {
    EXPECT_EQ(Unpack(bytes.substr(0, length)).has_value(), length == shortest) << length;
  }
  std::string newer = bytes;
  newer[0] = 2;
  EXPECT_FALSE(Unpack(newer)) << "another version";
}

}  // namespace
