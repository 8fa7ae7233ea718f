#include "transcoder/copy_translation.h"

#include <gtest/gtest.h>

namespace orvo::transcoder {
namespace {

using Strings = std::vector<std::string>;

const Strings kStart = {"-ss",     "16.000", "-i",     "film.mkv",        "-sn",
                        "-vcodec", "copy",   "-bsf:v", "h264_mp4toannexb"};
const Strings kEnd = {"-hls_seek_time", "16000", "-segment_start_number", "2", "-map", "0:0",
                      "-map",           "0:2",   "slice-%05d.ts"};

SegmentRequest Request() {
  SegmentRequest request;
  request.isWanted = true;
  request.start = 16;
  request.copiesPictures = true;
  return request;
}

std::optional<FilmCopy> Plan(const Strings& sound, const SegmentRequest& request = Request()) {
  Strings arguments = kStart;
  arguments.insert(arguments.end(), sound.begin(), sound.end());
  arguments.insert(arguments.end(), kEnd.begin(), kEnd.end());
  return PlanCopy(arguments, request, EnterFilm(request));
}

TEST(CopyTranslation, TakesTheTracksAndTheEntryFromTheCommandLine) {
  const auto copy = Plan({"-acodec", "copy"});
  ASSERT_TRUE(copy);
  EXPECT_EQ(copy->film, "film.mkv");
  EXPECT_EQ(copy->pictures.number, 0);
  EXPECT_EQ(copy->sound.number, 2);
  EXPECT_FALSE(copy->recipe);
  EXPECT_DOUBLE_EQ(copy->seek, EnterFilm(Request()).seek);
  EXPECT_EQ(copy->pictureFilters, "h264_mp4toannexb,dump_extra=freq=keyframe");
}

TEST(CopyTranslation, EncodesStereoAac) {
  SegmentRequest request = Request();
  request.soundFilters = "volume=0.5";
  const auto copy =
      Plan({"-acodec", "aac", "-ab", "192k", "-ac", "2", "-aac_coder", "fast"}, request);
  ASSERT_TRUE(copy);
  ASSERT_TRUE(copy->recipe);
  EXPECT_EQ(copy->recipe->encoder, "aac");
  EXPECT_EQ(copy->recipe->coder, "fast");
  EXPECT_EQ(copy->recipe->bitRate, 192000);
  EXPECT_EQ(copy->recipe->rate, 48000);
  EXPECT_EQ(copy->recipe->filters, "volume=0.5");
  EXPECT_EQ(copy->recipe->first, EnterFilm(request).firstSample);
}

TEST(CopyTranslation, LeavesToFFmpegWhatItDoesNotKnow) {
  for (const Strings& sound :
       {Strings{"-acodec", "mp3", "-ac", "2"}, Strings{"-acodec", "aac"},
        Strings{"-acodec", "aac", "-ac", "6"}, Strings{"-acodec", "copy", "-t", "5"},
        Strings{"-acodec", "copy", "-ss", "1"}, Strings{"-acodec", "copy", "-i", "other.mkv"},
        Strings{"-acodec", "copy", "-map", "0:3"}, Strings{"-acodec", "copy", "-map", "1:0"},
        Strings{"-acodec", "aac", "-ac", "2", "-sound", "original"},
        Strings{"-acodec", "copy", "-vcodec", "libx264"}}) {
    EXPECT_FALSE(Plan(sound)) << sound.back();
  }
}

TEST(CopyTranslation, LeavesFilmsThatCannotBeEnteredAnywhereToFFmpeg) {
  for (bool SegmentRequest::*trait : {&SegmentRequest::lacksIndex, &SegmentRequest::clockJumps}) {
    SegmentRequest request = Request();
    request.*trait = true;
    EXPECT_FALSE(Plan({"-acodec", "copy"}, request));
  }
  SegmentRequest piped = Request();
  piped.isSeekable = false;
  EXPECT_FALSE(Plan({"-acodec", "copy"}, piped));
}

TEST(CopyTranslation, FindsTheOnlyTrackOfAType) {
  const auto copy = PlanCopy({"-i", "film", "-vcodec", "copy", "-bsf:v", "null", "-acodec", "copy",
                              "-map", "0:v", "-map", "0:a?", "out"},
                             Request(), {});
  ASSERT_TRUE(copy);
  EXPECT_LT(copy->pictures.number, 0);
  EXPECT_FALSE(copy->pictures.isOptional);
  EXPECT_LT(copy->sound.number, 0);
  EXPECT_TRUE(copy->sound.isOptional);
}

}  // namespace
}  // namespace orvo::transcoder
