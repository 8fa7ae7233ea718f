#include "transcoder/segment_cutter.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <iterator>
#include <map>
#include <vector>

namespace orvo::transcoder {
namespace {

constexpr int kPicturePid = 0x100;
constexpr int kSoundPid = 0x101;
constexpr bool kKey = true;
constexpr bool kNoKey = false;

// The packets of each segment, by number.
class Sink : public SegmentSink {
 public:
  void Begin(int number) override { segments[number]; }
  void Append(const Packet& packet) override { segments.rbegin()->second.push_back(packet); }

  std::map<int, std::vector<Packet>> segments;
};

Packet Table(int pid) {
  Packet packet{};
  packet[0] = 0x47;
  packet[1] = static_cast<unsigned char>(0x40 | pid >> 8);
  packet[2] = static_cast<unsigned char>(pid);
  packet[3] = 0x1F;
  return packet;
}

// The first packet of a frame at `seconds` of the film.
Packet FramePacket(int pid, unsigned char streamId, double seconds, bool isKey) {
  Packet packet = Table(pid);
  packet[3] = 0x3F;
  packet[4] = 1;
  packet[5] = isKey ? 0x40 : 0;
  const auto pts = (static_cast<int64_t>(seconds * kTransportClockRate) + kMultiplexerDelay) &
                   ((INT64_C(1) << 33) - 1);
  const unsigned char pes[] = {0,
                               0,
                               1,
                               streamId,
                               0,
                               0,
                               0x80,
                               0x80,
                               5,
                               static_cast<unsigned char>(0x21 | (pts >> 29 & 0x0E)),
                               static_cast<unsigned char>(pts >> 22),
                               static_cast<unsigned char>(pts >> 14 | 1),
                               static_cast<unsigned char>(pts >> 7),
                               static_cast<unsigned char>(pts << 1 | 1)};
  std::copy(std::begin(pes), std::end(pes), packet.begin() + 6);
  return packet;
}

class Film {
 public:
  explicit Film(const SegmentPlan& plan) : cutter_(plan, sink_) {
    cutter_.Take(Table(0));
    cutter_.Take(Table(0x1000));
  }

  Film& Picture(double seconds, bool isKey = kKey) {
    cutter_.Take(FramePacket(kPicturePid, 0xE0, seconds, isKey));
    return *this;
  }
  Film& Sound(double seconds) {
    cutter_.Take(FramePacket(kSoundPid, 0xC0, seconds, kKey));
    return *this;
  }
  // How many frames each segment has.
  std::map<int, size_t> Frames() const {
    std::map<int, size_t> counts;
    for (const auto& [number, packets] : sink_.segments) {
      for (const Packet& packet : packets) {
        counts[number] += FrameStart(packet) ? 1 : 0;
      }
    }
    return counts;
  }
  const std::vector<Packet>& Segment(int number) const { return sink_.segments.at(number); }

 private:
  Sink sink_;
  SegmentCutter cutter_;
};

using Counts = std::map<int, size_t>;

SegmentPlan Plan(Cuts cuts, double length, int number, double start) {
  SegmentPlan plan;
  plan.cuts = cuts;
  plan.length = length;
  plan.firstNumber = number;
  plan.start = start;
  plan.startsAtOnce = start == 0;
  return plan;
}

TEST(TransportStream, ReadsTheTimeOfAFrame) {
  const auto frame = FrameStart(FramePacket(kPicturePid, 0xE0, 93000.25, kKey));
  ASSERT_TRUE(frame);
  EXPECT_EQ(frame->pts, (93000 * INT64_C(90000) + 22500 + 126000));
  EXPECT_EQ(frame->kind, Kind::kPicture);
  EXPECT_TRUE(frame->isKey);
  EXPECT_EQ(FrameStart(FramePacket(kSoundPid, 0xBD, 1, kNoKey))->kind, Kind::kSound);
}

TEST(TransportStream, TakesOnlyAFramesFirstPacketForOne) {
  Packet packet = FramePacket(kPicturePid, 0xE0, 1, kKey);
  packet[1] &= 0x1F;
  EXPECT_FALSE(FrameStart(packet));
  EXPECT_FALSE(FrameStart(Table(0)));
  packet = FramePacket(kPicturePid, 0xE0, 1, kKey);
  packet[4] = 183;
  EXPECT_FALSE(FrameStart(packet));
  packet[4] = 255;
  EXPECT_FALSE(FrameStart(packet));
}

TEST(SegmentCutter, CutsAtTheKeyFrameOfEachMultiple) {
  Film film(Plan(Cuts::kForced, 5, 0, 0));
  film.Picture(0).Sound(0).Picture(4.9).Picture(5.02, kNoKey).Picture(5.04).Sound(5.03).Picture(10);
  EXPECT_EQ(film.Frames(), (Counts{{0, 4}, {1, 2}, {2, 1}}));
}

TEST(SegmentCutter, DropsWhatStandsBeforeTheFirstSegment) {
  Film film(Plan(Cuts::kForced, 5, 2, 10));
  film.Sound(9.8).Sound(9.99).Picture(10.01).Sound(10.02);
  EXPECT_EQ(film.Frames(), (Counts{{2, 2}}));
}

TEST(SegmentCutter, GivesEveryNumberItsFile) {
  Film film(Plan(Cuts::kForced, 5, 0, 0));
  film.Picture(0).Picture(16);
  EXPECT_EQ(film.Frames(), (Counts{{0, 1}, {1, 0}, {2, 0}, {3, 1}}));
}

TEST(SegmentCutter, GoesOnWithSoundWherePicturesStayAway) {
  Film film(Plan(Cuts::kForced, 5, 0, 0));
  film.Picture(0).Sound(5.4).Sound(5.6).Sound(10.6).Picture(15);
  EXPECT_EQ(film.Frames(), (Counts{{0, 2}, {1, 1}, {2, 1}, {3, 1}}));
}

TEST(SegmentCutter, CutsAnywhereWithoutAPlan) {
  Film film(Plan(Cuts::kAnywhere, 8, 1, 8));
  film.Picture(7.96).Picture(8, kNoKey).Picture(15.96).Picture(16, kNoKey);
  EXPECT_EQ(film.Frames(), (Counts{{1, 2}, {2, 1}}));
}

// Key frames at 0, 30, 31, 32, 33 and 40 s: fragments start at the first one at or after each
// multiple, and each at one of its own.
TEST(SegmentCutter, CutsOnAPlanOfKeyFrames) {
  constexpr double kKeys[] = {0, 30, 31, 32, 33, 40, 41, 48.001};
  const Counts whole = {{0, 1}, {1, 1}, {2, 1}, {3, 1}, {4, 1}, {5, 2}, {6, 1}};
  for (int first = 0; first < 6; ++first) {
    Film film(Plan(Cuts::kKeyFrames, 8, first, kKeys[first]));
    for (const double key : kKeys) {
      film.Picture(key);
    }
    EXPECT_EQ(film.Frames(), Counts(whole.find(first), whole.end())) << first;
  }
}

TEST(SegmentCutter, CountsAPlanFromTheFirstKeyFrame) {
  Film whole(Plan(Cuts::kKeyFrames, 8, 0, 0));
  whole.Picture(0.5).Picture(8.3).Picture(8.5).Picture(16.4).Picture(16.5);
  EXPECT_EQ(whole.Frames(), (Counts{{0, 2}, {1, 2}, {2, 1}}));
  Film part(Plan(Cuts::kKeyFrames, 8, 1, 8));
  part.Picture(7).Picture(8.5).Picture(16.4).Picture(16.5);
  EXPECT_EQ(part.Frames(), (Counts{{1, 2}, {2, 1}}));
  SegmentPlan known = Plan(Cuts::kKeyFrames, 8, 1, 8);
  known.firstKey = kTransportClockRate / 2;
  Film exact(known);
  exact.Picture(8.3).Picture(8.5).Picture(16.4).Picture(16.5);
  EXPECT_EQ(exact.Frames(), (Counts{{1, 2}, {2, 1}}));
}

TEST(SegmentCutter, FollowsTheClockPastItsTurn) {
  const double turn = static_cast<double>(INT64_C(1) << 33) / kTransportClockRate;
  const int number = static_cast<int>(turn / 5) - 1;
  Film film(Plan(Cuts::kForced, 5, number, number * 5.0));
  film.Picture(number * 5.0).Picture(number * 5.0 + 5).Picture(number * 5.0 + 10);
  EXPECT_EQ(film.Frames(), (Counts{{number, 1}, {number + 1, 1}, {number + 2, 1}}));
}

TEST(SegmentCutter, BeginsEverySegmentAlike) {
  Film film(Plan(Cuts::kForced, 5, 0, 0));
  film.Picture(0).Picture(1, kNoKey).Picture(5);
  for (const int number : {0, 1}) {
    const std::vector<Packet>& packets = film.Segment(number);
    EXPECT_EQ(Pid(packets[0]), 0);
    EXPECT_EQ(Pid(packets[1]), 0x1000);
    EXPECT_EQ(packets[2][3] & 0x0F, 0) << "the picture's counter starts anew";
    EXPECT_EQ(packets[2][5] & 0x80, 0x80) << "and says so";
  }
  EXPECT_EQ(film.Segment(0)[3][3] & 0x0F, 1);
  EXPECT_EQ(film.Segment(0)[3][5] & 0x80, 0);
}

}  // namespace
}  // namespace orvo::transcoder
