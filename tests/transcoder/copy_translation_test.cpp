#include "transcoder/copy_translation.h"

#include <gtest/gtest.h>

#include <algorithm>

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

Strings Progressive(const Strings& more) {
  Strings arguments = {"-ss",           "7.500",   "-copyts", "-i",     "film.mkv",
                       "-sn",           "-vcodec", "copy",    "-bsf:v", "h264_mp4toannexb",
                       "-map_chapters", "-1",      "-acodec", "aac",    "-ab",
                       "192k",          "-ac",     "2",       "-map",   "0:0",
                       "-map",          "0:1"};
  arguments.insert(arguments.end(), more.begin(), more.end());
  arguments.emplace_back("pipe:5");
  return arguments;
}

TEST(CopyTranslation, MakesOneStreamWithTheClockOfTheFilm) {
  const auto copy = PlanByteCopy(Progressive({"-f", "mpegts", "-ar", "44100"}), 7.5, "aresample");
  ASSERT_TRUE(copy && copy->recipe);
  EXPECT_DOUBLE_EQ(copy->seek, 7.5);
  EXPECT_EQ(copy->pictureFilters, "h264_mp4toannexb");
  EXPECT_EQ(copy->format.name, "mpegts");
  EXPECT_EQ(copy->format.options, "max_delay=0");
  EXPECT_EQ(copy->recipe->rate, 44100);
  EXPECT_EQ(copy->recipe->filters, "aresample");
  EXPECT_FALSE(copy->recipe->first);
}

TEST(CopyTranslation, TellsTheMultiplexerHowToMakeFragments) {
  const auto copy =
      PlanByteCopy(Progressive({"-ar", "48000", "-movflags", "frag_keyframe+default_base_moof",
                                "-frag_duration", "500000", "-write_tmcd", "0", "-f", "mp4"}),
                   0, "");
  ASSERT_TRUE(copy);
  EXPECT_EQ(copy->format.name, "mp4");
  EXPECT_EQ(copy->format.options,
            "max_delay=0:movflags=frag_keyframe+default_base_moof+frag_discont+delay_moov"
            ":frag_duration=500000:write_tmcd=0");
}

TEST(CopyTranslation, LeavesStreamsThatItDoesNotKnowToFFmpeg) {
  ASSERT_TRUE(PlanByteCopy(Progressive({"-ar", "48000", "-f", "mp4"}), 0, ""));
  for (const Strings& more :
       {Strings{"-ar", "48000", "-f", "matroska"}, Strings{"-ar", "48000"}, Strings{"-f", "mpegts"},
        Strings{"-ar", "48000", "-f", "mpegts", "-frag_duration", "5"},
        Strings{"-ar", "48000", "-f", "mp4", "-movflags", "a:write_tmcd=1"},
        Strings{"-ar", "48000", "-f", "mp4", "-map_chapters", "0"},
        Strings{"-ar", "48000", "-f", "mp4", "-webm_seek_time", "3"}}) {
    EXPECT_FALSE(PlanByteCopy(Progressive(more), 0, "")) << more.back();
  }
  Strings moved = Progressive({"-ar", "48000", "-f", "mp4"});
  moved.erase(std::find(moved.begin(), moved.end(), "-copyts"));
  EXPECT_FALSE(PlanByteCopy(moved, 0, ""));
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
