#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <string>
#include <vector>

#include "transcoder/cmaf_command.h"
#include "transcoder/cmaf_cutter.h"
#include "transcoder/cmaf_plan.h"
#include "transcoder/cmaf_request.h"
#include "transcoder/fragment_reader.h"

namespace orvo::transcoder {
namespace {

constexpr int64_t kSecond = kPlanClock;

// --- Planning ---

FilmOutline FilmWithKeys(double seconds, double distance) {
  FilmOutline film;
  film.hasPicture = true;
  film.end = static_cast<int64_t>(seconds * kSecond);
  for (double key = 0; key < seconds; key += distance) {
    film.keys.push_back(static_cast<int64_t>(key * kSecond));
  }
  return film;
}

TEST(CmafPlanning, BeginsWithShortSegmentsAndCutsAtKeyFrames) {
  const CmafPlan plan = PlanCmaf(FilmWithKeys(20, 0.5));
  EXPECT_EQ(plan.cuts, (std::vector<int64_t>{0, kSecond, 2 * kSecond, 4 * kSecond, 8 * kSecond,
                                             12 * kSecond, 16 * kSecond, 20 * kSecond}));
}

TEST(CmafPlanning, TakesWholeGroupsOfPicturesWhereTheyAreLong) {
  const CmafPlan plan = PlanCmaf(FilmWithKeys(25, 10));
  EXPECT_EQ(plan.cuts, (std::vector<int64_t>{0, 10 * kSecond, 20 * kSecond, 25 * kSecond}));
}

TEST(CmafPlanning, CutsAtPicturesWhereKeyFramesAreOfNoUse) {
  FilmOutline film = FilmWithKeys(10, 1);
  film.isOpen = true;
  film.rate = 24'000;
  film.scale = 1001;
  const CmafPlan plan = PlanCmaf(film);
  EXPECT_EQ(plan.cuts[1], 90'090);
  EXPECT_EQ(plan.delay, 0);
  EXPECT_FALSE(HasUsableKeys(film));
}

TEST(CmafPlanning, LeavesNoTinyLastSegment) {
  const CmafPlan plan = PlanCmaf(FilmWithKeys(8.3, 1));
  EXPECT_EQ(plan.cuts.back() - plan.cuts[plan.cuts.size() - 2], 43 * kSecond / 10);
}

TEST(CmafPlanning, DoesNotTrustAnIndexWithALongGap) {
  FilmOutline film = FilmWithKeys(100, 5);
  film.keys.resize(3);
  EXPECT_FALSE(HasUsableKeys(film));
}

TEST(CmafPlanning, OfTenHoursIsDoneAtOnce) {
  EXPECT_EQ(PlanCmaf(FilmWithKeys(36'000, 2)).Count(), 9002);
}

// --- Cutting ---

struct Piece {
  int64_t start = -1;
  std::vector<CmafSample> samples;
};

// Reads what a cutter writes.
class Pieces : public CmafSink {
 public:
  void Begin(int number) override { current_ = number; }
  void Write(const std::string& chunk) override {
    std::string text = header_.empty() ? chunk : header_ + chunk;
    FragmentReader reader([&](CmafSample sample) {
      Piece& piece = pieces[current_];
      piece.start = piece.start < 0 ? sample.decodeTime : piece.start;
      piece.samples.push_back(std::move(sample));
    });
    EXPECT_TRUE(reader.Add(text));
    ++chunks[current_];
  }
  void End() override { ended.push_back(current_); }

  std::map<int, Piece> pieces;
  std::map<int, int> chunks;
  std::vector<int> ended;

 private:
  std::string header_;
  int current_ = -1;
};

CmafTrack Pictures() {
  return {true, static_cast<uint32_t>(kPlanClock), 0, std::string(44, '\0'), ""};
}
CmafTrack Sound() {
  return {false, 48'000, 0, std::string(44, '\0'), ""};
}

constexpr int64_t kFrame = kSecond / 25;

CmafPlan TwoSeconds(int64_t delay) {
  return {25, 1, delay, {0, kSecond, 2 * kSecond}};
}

CmafSample Picture(int64_t number, bool isKey, int64_t shift = 0) {
  CmafSample sample;
  sample.time = number * kFrame + shift;
  sample.isKey = isKey;
  sample.data = "picture";
  return sample;
}

int64_t Length(const Piece& piece) {
  int64_t length = 0;
  for (const CmafSample& sample : piece.samples) {
    length += sample.duration;
  }
  return length;
}

TEST(CmafPictureCutter, CoversTheSpansOfThePlanExactly) {
  const CmafTrack track = Pictures();
  const CmafPlan plan = TwoSeconds(0);
  Pieces pieces;
  CmafPictureCutter cutter(track, plan, 0, false, pieces);
  for (int64_t i = 0; i < 49; ++i) {
    cutter.Take(Picture(i, i % 25 == 0, 300));  // the film's clock is a little off
  }
  cutter.Finish();
  EXPECT_EQ(pieces.ended, (std::vector<int>{0, 1}));
  for (const int number : {0, 1}) {
    EXPECT_EQ(pieces.pieces[number].start, number * kSecond);
    EXPECT_EQ(Length(pieces.pieces[number]), kSecond);
    EXPECT_EQ(pieces.pieces[number].samples.front().time, number * kSecond);
  }
  EXPECT_TRUE(cutter.IsSated());
}

TEST(CmafPictureCutter, GivesReorderedPicturesDecodeTimesThatGrow) {
  const CmafTrack track = Pictures();
  const CmafPlan plan = TwoSeconds(kFrame);
  Pieces pieces;
  CmafPictureCutter cutter(track, plan, 0, true, pieces);
  for (const int64_t i : {0, 2, 1, 4, 3, 6, 5, 8, 7}) {
    cutter.Take(Picture(i, i == 0));
  }
  cutter.Take(Picture(25, true));
  cutter.Finish();
  int64_t last = -1;
  std::vector<int64_t> shown;
  for (const CmafSample& sample : pieces.pieces[0].samples) {
    EXPECT_GT(sample.decodeTime, last);
    EXPECT_GE(sample.time, sample.decodeTime);
    last = sample.decodeTime;
    shown.push_back((sample.time - plan.delay) / kFrame);
  }
  EXPECT_EQ(shown, (std::vector<int64_t>{0, 2, 1, 4, 3, 6, 5, 8, 7}));
}

TEST(CmafPictureCutter, LeavesOutPicturesThatNeedTheSegmentBefore) {
  const CmafTrack track = Pictures();
  const CmafPlan plan = TwoSeconds(kFrame);
  Pieces pieces;
  CmafPictureCutter cutter(track, plan, 1, true, pieces);
  for (const int64_t i : {10, 25, 23, 24, 26}) {
    cutter.Take(Picture(i, i == 25));
  }
  cutter.Finish();
  EXPECT_EQ(pieces.ended, (std::vector<int>{1}));
  EXPECT_EQ(pieces.pieces[1].samples.size(), 2U);
}

TEST(CmafPictureCutter, WritesShortChunksFirstAndNoneOverHalfASecond) {
  const CmafTrack track = Pictures();
  const CmafPlan plan = TwoSeconds(0);
  Pieces pieces;
  CmafPictureCutter cutter(track, plan, 0, false, pieces);
  for (int64_t i = 0; i < 5; ++i) {
    cutter.Take(Picture(i, i == 0));
  }
  EXPECT_EQ(pieces.chunks[0], 1);
  for (int64_t i = 5; i < 50; ++i) {
    cutter.Take(Picture(i, i == 25));
  }
  EXPECT_EQ(pieces.chunks[0], 4);
}

TEST(CmafSoundCutter, PutsAFrameWhereItsMiddleLies) {
  const CmafTrack track = Sound();
  const CmafPlan plan = TwoSeconds(0);
  Pieces pieces;
  CmafSoundCutter cutter(track, plan, 0, pieces);
  for (int64_t i = -1; i < 94; ++i) {
    CmafSample frame;
    frame.time = i * 1024;
    frame.duration = 1024;
    frame.data = "s";
    cutter.Take(std::move(frame));
  }
  cutter.Finish();
  EXPECT_EQ(pieces.pieces[0].start, 0);
  EXPECT_EQ(pieces.pieces[0].samples.size(), 47U);
  EXPECT_EQ(pieces.pieces[1].start, int64_t{47} * 1024);
}

TEST(CmafSoundCutter, WritesEmptySegmentsBehindTheSound) {
  const CmafTrack track = Sound();
  const CmafPlan plan = TwoSeconds(0);
  Pieces pieces;
  CmafSoundCutter cutter(track, plan, 0, pieces);
  cutter.Finish();
  EXPECT_EQ(pieces.ended, (std::vector<int>{0, 1}));
  EXPECT_TRUE(pieces.pieces.empty());
}

// --- Streams and command lines ---

TEST(FragmentReader, RefusesWhatIsNoSuchStream) {
  for (const std::string& text :
       {std::string("\0\0\0\1moof", 8), std::string("\xff\xff\xff\xffmoof", 8),
        std::string("\0\0\0\x08moov", 8)}) {
    FragmentReader reader([](const CmafSample&) { FAIL(); });
    EXPECT_FALSE(reader.Add(text));
  }
}

TEST(FragmentReader, ReadsTheHeaderThatThisProgramWrites) {
  CmafTrack track = Pictures();
  track.descriptions = std::string("\0\0\0\x10stsd\0\0\0\0\0\0\0\0", 16);
  FragmentReader reader([](const CmafSample&) { FAIL(); });
  ASSERT_TRUE(reader.Add(CmafHeader(track, 5)));
  ASSERT_TRUE(reader.Track());
  EXPECT_TRUE(reader.Track()->isPicture);
  EXPECT_EQ(reader.Track()->clock, track.clock);
  EXPECT_EQ(reader.Track()->descriptions, track.descriptions);
}

TEST(CmafRequests, AreReadOnlyInTheirOwnForm) {
  const auto request = ParseCmafRequest({"-cmaf", "h264", "-track", "2", "-number", "7", "-s",
                                         "640x360", "-vb", "800000", "-i", "film.mkv", "folder"});
  ASSERT_TRUE(request);
  EXPECT_EQ(request->number, 7);
  EXPECT_EQ(request->size.height, 360);
  for (const std::vector<std::string>& wrong :
       {std::vector<std::string>{"-cmaf"},
        {"-cmaf", "h265", "-i", "film", "folder"},
        {"-cmaf", "h264", "-track", "2", "folder"},
        {"-cmaf", "h264", "-number", "-1", "-i", "film", "folder"},
        {"-cmaf", "h264", "-f", "mp4", "-i", "film", "folder"}}) {
    EXPECT_FALSE(ParseCmafRequest(wrong));
  }
}

std::string ValueOf(const std::vector<std::string>& command, const std::string& option) {
  const auto found = std::find(command.begin(), command.end(), option);
  return found == command.end() ? "" : *(found + 1);
}

TEST(CmafCommands, ForceKeyFramesAtTheCutsOfThePlan) {
  CmafRequest request;
  request.treatment = Treatment::kH264;
  request.number = 1;
  request.film = "film.mkv";
  const CmafPlan plan{25, 1, 0, {0, kSecond, 3 * kSecond, 5 * kSecond}};
  const auto command = CmafCommand(request, plan, {"ffmpeg", "", -1});
  EXPECT_EQ(ValueOf(command, "-force_key_frames"), "0.998000,2.998000");
  EXPECT_EQ(ValueOf(command, "-ss"), "1.001000");
  EXPECT_EQ(ValueOf(command, "-i"), "file:film.mkv");
}

TEST(CmafCommands, TakeCopiedAacOutOfTheFramesOfATransportStream) {
  CmafPlan plan;
  plan.cuts = {0, 90000};
  const auto command = [&](const char* option) {
    const auto request =
        ParseCmafRequest({"-cmaf", "sound", "-track", "1", "-aac", option, "-i", "film", "folder"});
    return CmafCommand(request.value(), plan, {"ffmpeg", "", -1});
  };
  EXPECT_EQ(ValueOf(command("1"), "-bsf:a"), "aac_adtstoasc");
  const auto other = command("0");
  EXPECT_EQ(std::count(other.begin(), other.end(), "-bsf:a"), 0);
}

TEST(CmafCommands, PutSoundOnTheGridOfAllRuns) {
  CmafRequest request;
  request.treatment = Treatment::kStereo;
  request.number = 1;
  const CmafPlan plan{25, 1, 0, {0, 10 * kSecond, 20 * kSecond}};
  const std::string filters = ValueOf(CmafCommand(request, plan, {"ffmpeg", "", -1}), "-af");
  EXPECT_NE(filters.find("atrim=start_pts=475136"), std::string::npos) << filters;
  EXPECT_EQ(475136 % 1024, 0);
}

}  // namespace
}  // namespace orvo::transcoder
