#include "transcoder/translation.h"
#include "transcoder/resumption.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <iterator>
#include <optional>
#include <set>
#include <sstream>

#include "liborvoqmx/util/media_formats.h"
#include "transcoder/resumption.h"
#include "transcoder/shell_line.h"

namespace orvo::transcoder {
namespace {

using Strings = std::vector<std::string>;

// A machine with these encoders and filters, on which the films named *.ts have no index and those
// named pq* a high dynamic range.
struct Machine {
  std::set<std::string, std::less<>> encoders;
  int progressFd = -1;
  std::set<std::string, std::less<>> filters{};

  Translation Translate(const Strings& arguments) const {
    Surroundings surroundings;
    surroundings.executable = "/usr/bin/ffmpeg";
    surroundings.progressFd = progressFd;
    surroundings.canEncode = [this](std::string_view name) { return encoders.count(name) != 0; };
    surroundings.lacksIndex = [](const std::string& film) {
      return film.size() > 3 && film.compare(film.size() - 3, 3, ".ts") == 0;
    };
    surroundings.findHighRange = [](const std::string& film) {
      return film.rfind("pq", 0) == 0 ? std::optional(HighRange{16, 9, 9, false}) : std::nullopt;
    };
    surroundings.hasFilter = [this](std::string_view name) { return filters.count(name) != 0; };
    return transcoder::Translate(arguments, surroundings);
  }
};

Strings Words(const std::string& text) {
  std::istringstream words(text);
  return {std::istream_iterator<std::string>(words), {}};
}

const Strings kGeneral = {"/usr/bin/ffmpeg", "-nostdin", "-hide_banner", "-loglevel", "warning",
                          "-nostats",        "-y"};
const Strings kGuards = {"-protocol_whitelist", "file,pipe,fd", "-format_whitelist",
                         kSelfContainedFormats};

Strings operator+(Strings left, const Strings& right) {
  left.insert(left.end(), right.begin(), right.end());
  return left;
}

Strings Translated(const Strings& arguments, const Machine& machine = {}) {
  return machine.Translate(arguments).command;
}

// What becomes of options behind the input.
Strings Output(const Strings& options, const Machine& machine = {}) {
  const Strings command = Translated(Strings{"-i", "f"} + options + Strings{"o"}, machine);
  const auto input = std::find(command.begin(), command.end(), "file:f");
  return input == command.end() ? Strings{} : Strings(input + 1, command.end() - 1);
}

bool Contains(const Strings& list, const Strings& part) {
  return std::search(list.begin(), list.end(), part.begin(), part.end()) != list.end();
}

TEST(Translation, GuardsTheInputAndPassesOnWhatItDoesNotKnow) {
  EXPECT_EQ(
      Translated(Words("-ss 12.000 -i /film.mkv -vb 1k -new pipe:5")),
      kGeneral + Words("-ss 12.000") + kGuards + Words("-i file:/film.mkv -vb 1k -new pipe:5"));
}

TEST(Translation, TakesEveryNameForALocalFile) {
  for (const char* name : {"http://host/film", "concat:a|b", "data:x", "file:x", "-", "a b'c"}) {
    EXPECT_TRUE(Contains(Translated({"-i", name, "o"}), {"-i", std::string("file:") + name}));
  }
}

TEST(Translation, LetsDescriptorsIn) {
  EXPECT_TRUE(Contains(Translated(Words("-i pipe:3 o")), Words("-i pipe:3")));
  EXPECT_TRUE(Contains(Translated(Words("-i fd:3 o")), Words("-i fd:3")));
}

TEST(Translation, GuardsEveryInputBehindWhatTheCommandLineSays) {
  const Strings command = Translated(Words("-protocol_whitelist http -i a -i b o"));
  EXPECT_TRUE(Contains(command, Words("-protocol_whitelist http") + kGuards + Words("-i file:a") +
                                    kGuards + Words("-i file:b")));
}

TEST(Translation, ReportsProgressOnTheDescriptorItIsGiven) {
  EXPECT_TRUE(
      Contains(Translated(Words("-i f o"), {{}, 7}), Words("-progress pipe:7 -stats_period 2")));
  EXPECT_FALSE(Contains(Translated(Words("-i f o")), Words("-progress")));
}

TEST(Translation, DropsTheHardwarePreference) {
  EXPECT_EQ(Translated(Words("-prefer_smd -i f o")), Translated(Words("-i f o")));
}

TEST(Translation, StartsTheClockOfAWebMStreamWhereItIsTold) {
  EXPECT_EQ(Output(Words("-webm_seek_time 30 -avoid_negative_ts 0")),
            (Words("-avoid_negative_ts 0 -output_ts_offset 30")));
}

TEST(Translation, StartsCopiedSoundWithTheEncodedPicture) {
  EXPECT_EQ(Output(Words("-vcodec libvpx -acodec copy -af aresample -webm_seek_time 30")),
            Words("-vcodec libvpx -acodec copy -output_ts_offset 30 -copypriorss:a 0"));
  EXPECT_EQ(Output(Words("-vcodec copy -acodec copy")), Words("-vcodec copy -acodec copy"));
}

TEST(Translation, EncodesSoundThatALiveStreamCannotTakeAsItIs) {
  const Strings command =
      Translated(Words("-i f.ts -vcodec libvpx -acodec copy -af aresample -webm_seek_time 30 o"));
  EXPECT_TRUE(Contains(command, Words("-acodec libmp3lame -af aresample")));
  EXPECT_FALSE(Contains(command, Words("-copypriorss:a")));
}

TEST(Translation, KeepsTheFilmsClock) {
  const Strings command = Translated(Words("-ss 12.000 -copyts -i f -f mpegts o"));
  EXPECT_TRUE(Contains(command, Words("-f mpegts -output_ts_offset 12.000 -muxdelay 0")));
  EXPECT_FALSE(Contains(command, Words("-copyts")));
}

TEST(Translation, KeepsTheFilmsClockFromItsStart) {
  EXPECT_TRUE(Contains(Translated(Words("-copyts -i f o")), Words("-output_ts_offset 0")));
}

TEST(Translation, StatesTheClockInEachFragment) {
  EXPECT_TRUE(Contains(Translated(Words("-copyts -i f -movflags frag_keyframe o")),
                       Words("-movflags frag_keyframe+frag_discont+delay_moov")));
  EXPECT_EQ(Output(Words("-movflags frag_keyframe")), (Words("-movflags frag_keyframe")));
}

TEST(Translation, StartsTheSoundOfARemuxAtItsFirstPicture) {
  EXPECT_TRUE(Contains(Translated(Words("-ss 5 -i f -vcodec copy o")),
                       Words("-ss 5 -noaccurate_seek") + kGuards));
}

TEST(Translation, EntersAFilmWithoutIndexEarlyAndCutsThatOff) {
  const Strings command = Translated(Words("-ss 12.500 -copyts -i f.ts -an o"));
  EXPECT_TRUE(Contains(command, Words("-ss 9.500") + kGuards));
  EXPECT_TRUE(Contains(command, Words("-an -ss 3.000 -output_ts_offset 12.500")));
}

TEST(Translation, EntersAFilmWithoutIndexNoEarlierThanItsStart) {
  const Strings command = Translated(Words("-ss 1.000 -i f.ts o"));
  EXPECT_EQ(std::count(command.begin(), command.end(), "-ss"), 1);
  EXPECT_TRUE(Contains(command, Words("-ss 1.000 o")));
}

TEST(Translation, LeavesSeeksAloneThatNeedNoHelp) {
  const Strings command = Translated(Words("-i f.ts -ss 5 o"));
  EXPECT_EQ(std::count(command.begin(), command.end(), "-ss"), 1);
  EXPECT_TRUE(Contains(Translated(Words("-ss 9 -i f.ts -c:v copy o")), Words("-ss 9")));
}

TEST(Translation, ReadsAFilmFromItsStartWithoutASeek) {
  for (const char* start : {"0", "0.000", "00:00:00"}) {
    for (const char* film : {"f.ts", "f.flv"}) {
      const Strings command = Translated({"-ss", start, "-copyts", "-i", film, "o"});
      EXPECT_FALSE(Contains(command, {"-ss"})) << start << " " << film;
      EXPECT_TRUE(Contains(command, {"-output_ts_offset", start})) << start << " " << film;
    }
  }
}

TEST(Translation, ReadsTimesAsFFmpegDoes) {
  const Strings command = Translated(Words("-ss 1:02:05.5 -i f.ts o"));
  EXPECT_TRUE(Contains(command, Words("-ss 3722.500") + kGuards));
}

TEST(Translation, TellsTheScalerTheShapeOfPixels) {
  for (const char* options :
       {"-s 640x480", "-s 640x480 -aspect 1.77778", "-aspect 4:3", "-vf scale=640:480"}) {
    const Strings output = Output(Words(options));
    const auto chain = std::find(output.begin(), output.end(), "-vf");
    ASSERT_LT(chain + 1, output.end()) << options;
    EXPECT_EQ((chain + 1)->rfind("setsar=sar=sar", 0), 0U) << options;
    EXPECT_FALSE(Contains(output, {"-aspect"})) << options;
  }
}

TEST(Translation, LeavesTheCoverOfMusicAway) {
  EXPECT_TRUE(Contains(Output(Words("-acodec aac -music 1")), {"-vn"}));
  EXPECT_FALSE(Contains(Output(Words("-acodec aac -music 0")), {"-vn"}));
}

TEST(Translation, LeavesTheShapeOfCopiedPicturesAlone) {
  EXPECT_EQ(Output(Words("-vcodec copy -aspect 16:9")), Words("-vcodec copy -aspect 16:9"));
}

struct Replacement {
  const char* option;
  const char* encoder;
  const char* replacement;
};

constexpr Replacement kReplacements[] = {
    {"-acodec", "libfdk_aac", "aac"},       {"-c:a", "libfdk_aac", "aac"},
    {"-codec:a", "libfdk_aac", "aac"},      {"-c:a:1", "libshine", "libmp3lame"},
    {"-vcodec", "h264_smd", "libx264"},     {"-c:v", "h264_vaapi", "libx264"},
    {"-codec:v", "h264_qsv", "libx264"},    {"-c:v:0", "h264_nvenc", "libx264"},
    {"-vcodec", "h264_v4l2m2m", "libx264"}, {"-vcodec", "h264_omx", "libx264"},
};

TEST(Translation, ReplacesEncodersThatTheMachineLacks) {
  for (const Replacement& row : kReplacements) {
    const Strings arguments = {"-i", "f", row.option, row.encoder, "o"};
    const Translation translation = Machine().Translate(arguments);
    EXPECT_TRUE(Contains(translation.command, {row.option, row.replacement})) << row.encoder;
    ASSERT_EQ(translation.notes.size(), 1u) << row.encoder;
    EXPECT_NE(translation.notes[0].find(row.encoder), std::string::npos);
    EXPECT_NE(translation.notes[0].find(row.replacement), std::string::npos);
  }
}

TEST(Translation, KeepsEncodersThatTheMachineHas) {
  for (const Replacement& row : kReplacements) {
    const Translation translation =
        Machine{{row.encoder}}.Translate({"-i", "f", row.option, row.encoder, "o"});
    EXPECT_TRUE(Contains(translation.command, {row.option, row.encoder})) << row.encoder;
    EXPECT_TRUE(translation.notes.empty()) << row.encoder;
  }
}

// Without the option, NVENC and Quick Sync make them plain I pictures.
TEST(Translation, LetsDecodersStartAtForcedKeyFrames) {
  const struct {
    const char* encoder;
    Strings option;
  } rows[] = {{"h264_nvenc", {"-forced-idr", "1"}}, {"h264_qsv", {"-forced_idr", "1"}}};
  for (const auto& row : rows) {
    const Strings arguments = {"-vcodec", row.encoder};
    EXPECT_TRUE(Contains(Output(arguments, {{row.encoder}}), row.option)) << row.encoder;
    EXPECT_EQ(Output(arguments).back(), Output({"-vcodec", "h264_omx"}).back()) << row.encoder;
  }
  EXPECT_EQ(Output({"-vcodec", "h264_v4l2m2m"}, {{"h264_v4l2m2m"}}),
            Strings({"-vcodec", "h264_v4l2m2m"}));
}

TEST(Translation, AsksOnlyAboutEncodersWithAReplacement) {
  Surroundings surroundings;
  surroundings.canEncode = [](std::string_view name) {
    ADD_FAILURE() << name;
    return false;
  };
  Translate({"-i", "f", "-vcodec", "libx264", "-acodec", "aac", "-c:v", "", "o"}, surroundings);
}

TEST(Translation, LeavesTheHardwareOutWithItsEncoder) {
  EXPECT_EQ(Output(Words(
                "-vaapi_device /dev/x -vf format=nv12,hwupload -vcodec h264_vaapi -preset fast")),
            (Words("-vcodec libx264 -preset fast")));
  EXPECT_EQ(
      Output(Words("-vf deinterlace_vaapi=rate=1,scale_vaapi=w=640:h=360,hwupload -c:v h264_vaapi "
                   "-preset p4 -profile:v constrained_baseline")),
      (Words("-vf setsar=sar=sar:max=65535,yadif,scale=w=640:h=360 -c:v libx264 -preset veryfast "
             "-profile:v baseline")));
}

TEST(Translation, EncodesFastInPlaceOfHardware) {
  EXPECT_EQ(Output(Words("-vcodec h264_smd")), (Words("-vcodec libx264 -preset veryfast")));
}

TEST(Translation, LeavesOutWhatOnlyTheReplacedSoundEncoderKnows) {
  EXPECT_EQ(Output(Words("-acodec libfdk_aac -afterburner 1 -profile:a aac_he")),
            (Words("-acodec aac")));
}

TEST(Translation, LeavesOutWhatOnlyAnotherPictureEncoderKnows) {
  const Machine machine{{"h264_vaapi"}};
  EXPECT_EQ(Output(Words("-vcodec wmv2 -preset fast -crf 25 -deadline realtime -g 50")),
            Words("-vcodec wmv2 -g 50"));
  EXPECT_EQ(Output(Words("-c:v libvpx -cpu-used -6 -row-mt 1")), Words("-c:v libvpx -cpu-used -6"));
  EXPECT_EQ(Output(Words("-vcodec copy -preset:v fast")), Words("-vcodec copy"));
  EXPECT_EQ(Output(Words("-preset fast -crf 25")), Words("-preset fast -crf 25"));
  const Strings onCard = Translated(
      Words("-i f -vcodec h264_vaapi -preset superfast -pix_fmt yuv420p -crf 25 -bf 0 o"), machine);
  EXPECT_FALSE(Contains(onCard, {"-preset"}) || Contains(onCard, {"-crf"}));
  EXPECT_FALSE(Contains(onCard, {"-pix_fmt"}));
  EXPECT_TRUE(Contains(onCard, Words("-bf 0")));
}

TEST(Translation, LeavesOutWhatOnlyAnotherSoundEncoderKnows) {
  EXPECT_EQ(Output(Words("-acodec libshine -aac_coder fast")), Words("-acodec libmp3lame"));
  EXPECT_EQ(Output(Words("-acodec aac -aac_coder fast")), Words("-acodec aac -aac_coder fast"));
  EXPECT_EQ(Output(Words("-vcodec copy -acodec copy -aac_coder fast")),
            Words("-vcodec copy -acodec copy"));
}

TEST(Translation, LetsTheLimitsOfTheRateFollowTheRate) {
  EXPECT_EQ(Output(Words("-vb 540000 -maxrate 270k -bufsize 270k")),
            Words("-vb 540000 -maxrate 540000 -bufsize 540000"));
  EXPECT_EQ(Output(Words("-maxrate 2M -bufsize 4M -vb 500000")),
            Words("-maxrate 500000 -bufsize 1000000 -vb 500000"));
}

TEST(Translation, LeavesLimitsAloneThatFitTheRate) {
  for (const char* options :
       {"-vb 270k -maxrate 270k -bufsize 540k", "-vb 270000 -maxrate 270k -bufsize 270k",
        "-maxrate 2M -bufsize 1M", "-vb 2M -bufsize 1M"}) {
    EXPECT_EQ(Output(Words(options)), Words(options));
  }
}

TEST(Translation, BringsThePicturesToTheHardware) {
  const Machine machine{{"h264_vaapi"}};
  const Strings command = Translated(Words("-i f -vcodec h264_vaapi -s 1280x720 o"), machine);
  EXPECT_TRUE(Contains(command, Words("-vaapi_device /dev/dri/renderD128")));
  EXPECT_TRUE(
      Contains(command, Words("-vf setsar=sar=sar:max=65535,scale=1280:720,format=nv12,hwupload")));
  EXPECT_FALSE(Contains(command, Words("-s")));
}

const char kMp4OfAnEngine[] =
    "-ss 30 -copyts -i f -vcodec h264_vaapi -force_key_frames expr:x -acodec aac -movflags frag "
    "-frag_duration 500000 -write_tmcd 0 -f mp4 pipe:7";

TEST(Translation, PlansPacketsForAStreamOfAnEngine) {
  const auto stream = Machine{{"h264_vaapi"}}.Translate(Words(kMp4OfAnEngine)).stream;
  ASSERT_TRUE(stream);
  EXPECT_EQ(stream->format.name, "mp4");
  EXPECT_EQ(stream->format.options,
            "max_delay=0:movflags=frag+frag_discont+delay_moov:frag_duration=500000:write_tmcd=0");
  EXPECT_EQ(stream->start, 30);
  EXPECT_TRUE(Contains(stream->command, Words("-ss 29.560")));
  EXPECT_TRUE(Contains(stream->command, Words("-force_key_frames expr:x")));
  EXPECT_TRUE(Contains(stream->command, Words("-bsf:v dump_extra=freq=keyframe")));
  EXPECT_TRUE(Contains(stream->command, Words("-output_ts_offset 39.560")));
  EXPECT_TRUE(Contains(stream->command, Words("-f nut pipe:1")));
  EXPECT_FALSE(Contains(stream->command, {"-movflags"}));
}

TEST(Translation, PlansTheSamePacketsInSoftware) {
  const auto stream = Machine{}.Translate(Words(kMp4OfAnEngine)).stream;
  ASSERT_TRUE(stream);
  EXPECT_TRUE(Contains(stream->command, Words("-vcodec libx264")));
  EXPECT_TRUE(Contains(stream->command, Words("-f nut pipe:1")));
}

TEST(Translation, PlansNoPacketsForOtherOutputs) {
  const Machine machine{{"h264_vaapi"}};
  for (const char* line : {"-copyts -i f -vcodec libx264 -f mp4 pipe:7",
                           "-copyts -i f -vcodec h264_vaapi -f mp4 film.mp4",
                           "-copyts -i f -vcodec h264_vaapi -f matroska pipe:7",
                           "-copyts -i f -vcodec h264_vaapi -acodec copy -f mp4 pipe:7",
                           "-i f -vcodec h264_vaapi -f mp4 pipe:7"}) {
    EXPECT_FALSE(machine.Translate(Words(line)).stream) << line;
  }
}

TEST(Resumption, EntersTheFilmAtTheGivenSecond) {
  EXPECT_EQ(ResumedAt(Words("-ss 12.000 -copyts -i f -ss 1 pipe:7"), 13.02),
            Words("-ss 13.020000 -copyts -i f -ss 1 pipe:7"));
  EXPECT_EQ(ResumedAt(Words("-copyts -i f pipe:7"), 0.02),
            Words("-copyts -ss 0.020000 -i f pipe:7"));
}

TEST(Translation, AddsNothingToHardwareFiltersThatAreThere) {
  const Machine machine{{"h264_vaapi"}};
  EXPECT_EQ(
      Output(
          Words("-vaapi_device /dev/x -vf yadif,format=nv12,hwupload -vcodec h264_vaapi -s hd720"),
          machine),
      (Words("-vaapi_device /dev/x -vf "
             "setsar=sar=sar:max=65535,yadif,scale=hd720,format=nv12,hwupload "
             "-vcodec h264_vaapi")));
}

// The filters of a command line for a film; "" for none.
std::string FiltersOf(const Strings& arguments, const Machine& machine) {
  const Strings command = Translated(arguments, machine);
  const auto option = std::find(command.begin(), command.end(), "-vf");
  return option == command.end() ? "" : *(option + 1);
}

const std::string kToneMapping =
    "zscale=tin=16:pin=9:min=9:rin=limited:t=linear:npl=150,format=gbrpf32le,zscale=p=bt709,"
    "tonemap=mobius:desat=0:peak=7,zscale=t=bt709:m=bt709:r=limited,format=yuv420p";

TEST(Translation, MapsTheTonesOfAHighRangeOnTheScaledPicture) {
  const Machine machine{{"h264_vaapi"}, -1, {"zscale"}};
  const std::string shape = "setsar=sar=sar:max=65535,";
  EXPECT_EQ(FiltersOf(Words("-i pq -vf yadif -s 640x360 -vcodec libx264 o"), machine),
            shape + "yadif,scale=640:360," + kToneMapping);
  EXPECT_EQ(FiltersOf(Words("-i pq -vcodec libx264 o"), machine), kToneMapping);
  EXPECT_EQ(FiltersOf(Words("-i pq -vcodec h264_vaapi -s hd720 o"), machine),
            shape + "scale=hd720," + kToneMapping + ",format=nv12,hwupload");
  EXPECT_FALSE(
      Contains(Translated(Words("-i pq -s hd720 -vcodec libx264 o"), machine), Words("-s")));
}

TEST(Translation, LeavesTheTonesOfOtherFilmsAndOfCopies) {
  const Machine machine{{}, -1, {"zscale"}};
  EXPECT_EQ(FiltersOf(Words("-i f -vf yadif -s hd720 -vcodec libx264 o"), machine),
            "setsar=sar=sar:max=65535,yadif");
  EXPECT_EQ(FiltersOf(Words("-i pq -vcodec copy o"), machine), "");
}

TEST(Translation, LeavesTheTonesAndSaysSoWithoutTheFilter) {
  const Translation translation = Machine().Translate(Words("-i pq -vcodec libx264 o"));
  EXPECT_FALSE(Contains(translation.command, Words("-vf")));
  ASSERT_EQ(translation.notes.size(), 1u);
  EXPECT_NE(translation.notes[0].find("zscale"), std::string::npos) << translation.notes[0];
}

TEST(Translation, RefusesWhatCannotBeRun) {
  for (const Strings& arguments :
       {Strings{}, Words("o"), Words("-ss 1 o"), Words("-i"), Words("-i f"), Words("-ss -i f"),
        Words("-i f -vcodec o"), Words("-i f -copyts")}) {
    const Translation translation = Machine().Translate(arguments);
    EXPECT_FALSE(translation.error.empty()) << ShellLine(arguments);
    EXPECT_TRUE(translation.command.empty()) << ShellLine(arguments);
  }
}

TEST(ShellLine, QuotesWhatAShellWouldTouch) {
  EXPECT_EQ(ShellLine({"a", "-b:v", "x y", "it's", "$(z)", ""}),
            "a -b:v 'x y' 'it'\\''s' '$(z)' ''");
}

}  // namespace
}  // namespace orvo::transcoder
