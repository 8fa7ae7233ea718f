#include "transcoder/segment_translation.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <iterator>
#include <sstream>

#include "transcoder/translation.h"

namespace orvo::transcoder {
namespace {

using Strings = std::vector<std::string>;

Strings Words(const std::string& text) {
  std::istringstream words(text);
  return {std::istream_iterator<std::string>(words), {}};
}

Translation Translated(const std::string& line) {
  Surroundings surroundings;
  surroundings.executable = "/usr/bin/ffmpeg";
  surroundings.canEncode = [](std::string_view) { return false; };
  surroundings.lacksIndex = [](const std::string& film) { return film != "f.mkv"; };
  surroundings.clockJumps = [](const std::string& film) { return film == "jumps.ts"; };
  return Translate(Words(line), surroundings);
}

bool Contains(const Strings& list, const std::string& part) {
  const Strings words = Words(part);
  return std::search(list.begin(), list.end(), words.begin(), words.end()) != list.end();
}

std::string Value(const Strings& list, const std::string& option) {
  const auto found = std::find(list.begin(), list.end(), option);
  return found == list.end() || found + 1 == list.end() ? "" : *(found + 1);
}

constexpr char kSegmenting[] =
    " -segment_format mpegts -segment_list_type m3u8 -hls_seek_time 10000 -segment_time 5"
    " -segment_time_delta 0.000 -segment_start_number 2 -individual_header_trailer 0"
    " -avoid_negative_ts 0 -break_non_keyframes 1 -map 0:v -map 0:a /d/slice-%05d.ts";

Translation Transcode(const std::string& options, const std::string& film = "f.mkv") {
  return Translated("-ss 10.000 -i " + film + " " + options + kSegmenting);
}

TEST(SegmentTranslation, WritesOneStreamForTheCutter) {
  const Translation translation = Transcode("-vcodec libx264 -acodec aac -f segment");
  ASSERT_TRUE(translation.segments);
  EXPECT_EQ(translation.segments->pattern, "/d/slice-%05d.ts");
  EXPECT_EQ(translation.segments->firstNumber, 2);
  EXPECT_EQ(translation.segments->length, 5);
  EXPECT_EQ(translation.segments->start, 10);
  EXPECT_EQ(translation.segments->cuts, Cuts::kForced);
  EXPECT_FALSE(translation.segments->startsAtOnce);
  EXPECT_TRUE(Contains(translation.command, "-f mpegts pipe:1"));
  for (const std::string& word : translation.command) {
    EXPECT_EQ(word.find("segment"), std::string::npos) << word;
    EXPECT_EQ(word.find("slice"), std::string::npos) << word;
  }
}

TEST(SegmentTranslation, LeavesOtherOutputsAlone) {
  const Translation translation = Translated("-i f -f segment -segment_time 5 -ar 8000 o");
  EXPECT_FALSE(translation.segments);
  EXPECT_TRUE(Contains(translation.command, "-f segment -segment_time 5 -ar 8000 o"));
}

TEST(SegmentTranslation, EntersTheFilmEarlyAndCutsThatOff) {
  const Strings command = Transcode("-vcodec libx264 -vf yadif -acodec aac").command;
  EXPECT_TRUE(Contains(command, "-ss 9.600"));
  EXPECT_EQ(Value(command, "-vf").rfind("yadif,trim=start=0.39999,settb=", 0), 0U);
  EXPECT_TRUE(Contains(command, "-output_ts_offset 9.600"));
}

TEST(SegmentTranslation, StartsSoundOnTheSameGridInEveryRun) {
  for (int start = 0; start < 3000; start += 5) {
    for (const int rate : {48000, 44100, 32000, 22050}) {
      SegmentRequest request;
      request.start = start;
      request.soundRate = rate;
      const SegmentEntry entry = EnterFilm(request);
      const double sample = entry.seek * rate + static_cast<double>(entry.firstSample);
      EXPECT_NEAR(sample / 18432, std::round(sample / 18432), 1e-6) << start << " " << rate;
      EXPECT_GE(entry.firstSample, 0);
      EXPECT_LE(static_cast<double>(entry.firstSample) / rate, std::max(0.0, entry.lead - 0.04));
      EXPECT_LT(entry.lead, 1.1);
    }
  }
}

TEST(SegmentTranslation, EntersAFilmWithoutIndexEarlierStill) {
  const Translation translation = Transcode("-vcodec libx264 -acodec aac", "f.ts");
  EXPECT_TRUE(Contains(translation.command, "-ss 6.600"));
  EXPECT_EQ(Value(translation.command, "-vf").rfind("trim=start=3.39999,", 0), 0U);
}

TEST(SegmentTranslation, ReadsAFilmWhoseClockJumpsFromItsStart) {
  const Translation translation = Transcode("-vcodec libx264 -acodec aac", "jumps.ts");
  EXPECT_FALSE(Contains(translation.command, "-ss"));
  EXPECT_EQ(Value(translation.command, "-vf").rfind("trim=start=9.99999,", 0), 0U);
  EXPECT_TRUE(Contains(translation.command, "-output_ts_offset 0.000"));
}

TEST(SegmentTranslation, StartsTheFilmAtItsStart) {
  const Translation translation = Translated(
      "-ss 0.000 -i f.ts -vcodec libx264 -hls_seek_time 0 -segment_start_number 0 /d/%d.ts");
  ASSERT_TRUE(translation.segments);
  EXPECT_TRUE(translation.segments->startsAtOnce);
  EXPECT_FALSE(Contains(translation.command, "-ss"));
  EXPECT_EQ(Value(translation.command, "-vf").find("trim"), std::string::npos);
}

TEST(SegmentTranslation, MarksThePicturesThatStartSegments) {
  for (const char* encoder : {"libx264", "h264_smd"}) {
    const Strings command = Transcode(std::string("-vcodec ") + encoder).command;
    EXPECT_TRUE(Contains(command, "-enc_time_base:v 1:360000")) << encoder;
    EXPECT_TRUE(Contains(command, "-force_key_frames expr:not(mod(round(t*360000),4))"));
    EXPECT_NE(Value(command, "-vf").find("(ld(1)/90000-0.399955)/5.0000000"), std::string::npos);
  }
}

TEST(SegmentTranslation, ListsTheSegmentsForEncodersThatNeedTheirTick) {
  const Strings command = Transcode("-vcodec other").command;
  EXPECT_FALSE(Contains(command, "-enc_time_base:v"));
  EXPECT_EQ(Value(command, "-vf").find("settb"), std::string::npos);
  EXPECT_EQ(Value(command, "-force_key_frames").rfind("0.39999,5.39999,10.39999,", 0), 0U);
}

// What the kernel takes as one argument.
constexpr size_t kLongestArgument = 131072;

TEST(SegmentTranslation, EveryArgumentFitsWhateverTheLength) {
  for (const char* encoder : {"libx264", "other"}) {
    for (const char* length : {"0.5", "1", "2", "2.5", "3", "5", "600"}) {
      for (const char* start : {"0", "36000000", "360000000"}) {
        const Translation translation =
            Translated(std::string("-ss 5 -i f.mkv -vcodec ") + encoder + " -hls_seek_time " +
                       start + " -segment_time " + length + " /d/%d.ts");
        ASSERT_FALSE(translation.command.empty()) << translation.error;
        for (const std::string& argument : translation.command) {
          EXPECT_LT(argument.size(), kLongestArgument) << encoder << " " << length << " " << start;
        }
      }
    }
  }
}

TEST(SegmentTranslation, CutsCopiedPicturesAtTheirKeyFramesOrAnywhere) {
  const std::string remux =
      "-ss 9.500 -i f -vcodec copy -bsf:v h264_mp4toannexb -acodec copy"
      " -hls_seek_time 9500 -segment_time 8 -segment_start_number 1";
  const Translation planned = Translated(remux + " -break_non_keyframes 0 /d/%d.ts");
  ASSERT_TRUE(planned.segments);
  EXPECT_EQ(planned.segments->cuts, Cuts::kKeyFrames);
  EXPECT_EQ(planned.segments->start, 9.5);
  EXPECT_TRUE(Contains(planned.command, "h264_mp4toannexb,dump_extra=freq=keyframe"));
  EXPECT_FALSE(Contains(planned.command, "-force_key_frames"));
  EXPECT_FALSE(Contains(planned.command, "-af"));
  const Translation free = Translated(remux + " -break_non_keyframes 1 /d/%d.ts");
  EXPECT_EQ(free.segments->cuts, Cuts::kAnywhere);
  EXPECT_TRUE(Contains(free.command, "h264_mp4toannexb,dump_extra=freq=all"));
}

TEST(SegmentTranslation, TakesAStreamFromAPipeAsItComes) {
  const Translation translation = Translated(
      "-i pipe:9 -map 0 -codec copy -f segment -segment_time 5 -segment_start_number 3"
      " -hls_seek_time 15000 /d/slice-%05d.ts");
  ASSERT_TRUE(translation.segments);
  EXPECT_FALSE(translation.segments->startsAtOnce) << "but at the first picture";
  EXPECT_EQ(translation.segments->cuts, Cuts::kForced);
  EXPECT_TRUE(Contains(translation.command, "-output_ts_offset 15.000"));
  EXPECT_FALSE(Contains(translation.command, "-af"));
}

constexpr char kFragmenting[] = " -fragment_length 5 -seek_time 10 -filled 1 /d/smooth";

Translation Fragment(const std::string& options) {
  return Translated("-ss 10.000 -i f.mkv -vb 200000 -ab 40k " + options + kFragmenting);
}

TEST(SegmentTranslation, TakesAllOfAStreamFromAPipeThatIsTheFilmsBeginning) {
  const Translation translation = Translated(
      "-i pipe:9 -map 0 -codec copy -f segment -segment_time 5 -segment_start_number 0"
      " -hls_seek_time 0 /d/slice-%05d.ts");
  ASSERT_TRUE(translation.segments);
  EXPECT_TRUE(translation.segments->startsAtOnce);
}

TEST(FragmentTranslation, PlansByTheRatesAndTheStart) {
  const Translation translation = Fragment("-acodec aac");
  ASSERT_TRUE(translation.fragments.has_value());
  EXPECT_FALSE(translation.segments.has_value());
  EXPECT_EQ(translation.fragments->folder, "/d/smooth");
  EXPECT_EQ(translation.fragments->videoRate, "200000");
  EXPECT_EQ(translation.fragments->audioRate, "40000");
  EXPECT_EQ(translation.fragments->firstNumber, 2);
  EXPECT_EQ(translation.fragments->length, 5 * kFragmentClockRate);
}

TEST(FragmentTranslation, WritesOneStreamForTheCutter) {
  const Strings command = Fragment("-acodec aac").command;
  EXPECT_TRUE(Contains(command, "-output_ts_offset 19.600 -avoid_negative_ts disabled"));
  EXPECT_TRUE(Contains(command, "-f nut pipe:1"));
  EXPECT_TRUE(Contains(command, "-bf 0"));
  for (const char* option : {"-fragment_length", "-seek_time", "-filled", "/d/smooth"}) {
    EXPECT_FALSE(Contains(command, option)) << option;
  }
}

TEST(FragmentTranslation, GivesEachKeyFrameItsParameterSets) {
  EXPECT_EQ(Value(Fragment("").command, "-bsf:v"), "dump_extra=freq=keyframe");
  EXPECT_EQ(Value(Fragment("-bsf:v x=1").command, "-bsf:v"), "x=1,dump_extra=freq=keyframe");
}

TEST(FragmentTranslation, FitsThePictureBehindItsFilters) {
  const Strings command = Fragment("-s 430x240 -vf yadif").command;
  const std::string chain = Value(command, "-vf");
  EXPECT_EQ(chain.rfind("setsar=sar=sar:max=65535,yadif,trim=start=0.39999,scale=", 0), 0U)
      << chain;
  EXPECT_NE(chain.find("pad=430:240:-1:-1,setsar=0"), std::string::npos) << chain;
  EXPECT_FALSE(Contains(command, "-s"));
}

TEST(FragmentTranslation, StartsWithAFragmentThatIsWhole) {
  const auto first = [](const std::string& start) {
    return Translated("-ss 0 -i f.mkv -vb 1 -ab 1 -fragment_length 5 -seek_time " + start + " d")
        .fragments->firstNumber;
  };
  EXPECT_EQ(first("0"), 0);
  EXPECT_EQ(first("1"), 1);
  EXPECT_EQ(first("5"), 1);
  EXPECT_EQ(first("5.1"), 2);
}

TEST(FragmentTranslation, TakesLengthsThatAreNoWholeSeconds) {
  const auto planned = [](const std::string& length, const std::string& start) {
    return *Translated("-ss 0 -i f.mkv -vb 1 -ab 1 -fragment_length " + length + " -seek_time " +
                       start + " d")
                .fragments;
  };
  EXPECT_EQ(planned("0.5", "0").length, kFragmentClockRate / 2);
  EXPECT_EQ(planned("2.5", "0").length, kFragmentClockRate * 5 / 2);
  EXPECT_EQ(planned("0.5", "3").firstNumber, 6);
  EXPECT_EQ(planned("2.5", "3").firstNumber, 2);
}

TEST(FragmentTranslation, LooksForALastPictureFurtherAndFurtherBack) {
  const Translation translation =
      Translated("-ss 30 -i f.mkv -vb 1 -ab 1 -fragment_length 5 -seek_time 30 d");
  const auto& searches = translation.fragments->searches;
  ASSERT_EQ(searches.size(), 3U);
  EXPECT_TRUE(Contains(searches[0], "-ss 22.000"));
  EXPECT_TRUE(Contains(searches[1], "-ss 14.000"));
  EXPECT_FALSE(Contains(searches[2], "-ss"));
  for (const Strings& search : searches) {
    EXPECT_TRUE(Contains(search, "-an"));
    EXPECT_FALSE(Contains(search, "-af"));
    EXPECT_EQ(Value(search, "-vf").find("trim"), std::string::npos);
  }
  EXPECT_FALSE(Contains(translation.command, "-an"));
}

TEST(FragmentTranslation, NothingStandsBeforeTheFilmsStart) {
  EXPECT_TRUE(Translated("-ss 0 -i f.mkv -vb 1 -ab 1 -fragment_length 5 -seek_time 0 d")
                  .fragments->searches.empty());
}

TEST(FragmentTranslation, RefusesWhatCannotBecomeFragments) {
  for (const char* options :
       {"-vcodec copy", "-acodec copy", "-c copy", "-vb x", "-ab 0", "-vb 1G"}) {
    EXPECT_FALSE(Fragment(options).error.empty()) << options;
  }
  EXPECT_FALSE(Translated("-i f.mkv -fragment_length 5 -seek_time 0 d").error.empty());
}

}  // namespace
}  // namespace orvo::transcoder
