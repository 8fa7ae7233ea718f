#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <utility>

#include "metadata/media_libraries.h"
#include "metadata/video_metadata.h"
#include "platform/plat.h"
#include "support/log_capture.h"
#include "support/processes.h"
#include "support/sysroot.h"
#include "util/media_formats.h"

namespace {

using LibOrvoQMX::MediaLibraries;
using LibOrvoQMX::VideoMetaData;
using List = std::vector<std::string>;

constexpr unsigned kUnknownTime = 2217714954;  // the demuxer's mark, in seconds, cut to 32 bits

// One track as a container could describe it.
struct Track {
  AVCodecParameters parameters{};
  AVStream stream{};

  Track() { stream.codecpar = &parameters; }
  Track(const Track&) = delete;
  Track& operator=(const Track&) = delete;
};

struct Sound : Track {
  explicit Sound(AVCodecID codec) {
    parameters.codec_type = AVMEDIA_TYPE_AUDIO;
    parameters.codec_id = codec;
    parameters.sample_rate = 48000;
    parameters.ch_layout = AV_CHANNEL_LAYOUT_STEREO;
  }
};

struct Picture : Track {
  Picture() {
    parameters.codec_type = AVMEDIA_TYPE_VIDEO;
    parameters.codec_id = AV_CODEC_ID_MPEG4;
    parameters.width = 720;
    parameters.height = 576;
  }
};

// Looks on while the probe opens a file, in a process of its own.
class Opening {
 public:
  Opening() : media_(const_cast<MediaLibraries&>(*MediaLibraries::Get())) {
    seen_ = static_cast<Seen*>(
        mmap(nullptr, sizeof(Seen), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0));
    open_ = std::exchange(media_.avformat_open_input, Look);
  }
  Opening(const Opening&) = delete;
  Opening& operator=(const Opening&) = delete;
  ~Opening() {
    media_.avformat_open_input = open_;
    munmap(seen_, sizeof(Seen));
  }

  static int Count() { return seen_->count; }
  static std::string Address() { return seen_->address.data(); }
  static std::string Formats() { return seen_->formats.data(); }
  static std::string Protocols() { return seen_->protocols.data(); }
  static pid_t Pid() { return seen_->pid; }
  static bool HasChosenAll() { return seen_->hasChosenAll; }

 private:
  using Text = std::array<char, 8192>;
  struct Seen {
    int count;
    pid_t pid;
    bool hasChosenAll;
    Text address;
    Text formats;
    Text protocols;
  };

  static void Copy(const char* from, Text& to) { snprintf(to.data(), to.size(), "%s", from); }
  static int Look(AVFormatContext** context, const char* url, const AVInputFormat* format,
                  AVDictionary** options) {
    ++seen_->count;
    seen_->pid = getpid();
    seen_->hasChosenAll = format == nullptr && options == nullptr;
    Copy(url, seen_->address);
    Copy((*context)->format_whitelist, seen_->formats);
    Copy((*context)->protocol_whitelist, seen_->protocols);
    return open_(context, url, format, options);
  }

  static inline decltype(MediaLibraries::avformat_open_input) open_ = nullptr;
  static inline Seen* seen_ = nullptr;
  MediaLibraries& media_;
};

class FilmProbe : public test::Sysroot {
 protected:
  static Json::Value Probe(const std::string& path) {
    Json::Value document(Json::objectValue);
    EXPECT_TRUE(VideoMetaData::ReadMetaDataFromFFMPEG(path, document)) << path;
    return document;
  }

  // Makes a film with ffmpeg and probes it.
  Json::Value ProbeOf(const std::string& name, const List& arguments) const {
    List line = {"ffmpeg", "-nostdin", "-loglevel", "fatal", "-y"};
    line.insert(line.end(), arguments.begin(), arguments.end());
    line.push_back(Path("/" + name));
    EXPECT_EQ(PlatExecv("/usr/bin/ffmpeg", line), 0) << name;
    return Probe(Path("/" + name));
  }

  // A film that has not been probed yet.
  std::string NewFilm() const {
    static int number = 0;
    const std::string name = "/new" + std::to_string(++number) + ".webm";
    Write(name, test::ReadWhole(test::Film("vp9_opus.webm")));
    return Path(name);
  }

  static Json::Value Video(const Json::Value& document, unsigned index = 0) {
    return document["track_info"]["video"][index];
  }
  static Json::Value Audio(const Json::Value& document, unsigned index = 0) {
    return document["track_info"]["audio"][index];
  }
};

TEST_F(FilmProbe, DescribesAFilmInMp4Completely) {
  const std::string path = test::Film("h264_aac.mp4");
  const Json::Value document = Probe(path);
  EXPECT_EQ(document["path"], path);
  struct stat status {};
  ASSERT_EQ(stat(path.c_str(), &status), 0);
  EXPECT_EQ(document["filesize"], std::to_string(status.st_size));
  EXPECT_EQ(document["duration"], 60U);
  EXPECT_EQ(document["container_type"], "mov,mp4,m4a,3gp,3g2,mj2");
  EXPECT_EQ(document["start_time"], 0U);
  EXPECT_GT(document["bitrate"].asInt(), 1000000);

  const Json::Value video = Video(document);
  EXPECT_EQ(video["profile"], "Constrained Baseline");
  EXPECT_EQ(video["level"], 30);
  EXPECT_GT(video["bitrate"].asInt(), 1000000);
  EXPECT_EQ(video["framerate"], 25.0);
  EXPECT_EQ(video["framerate_num"], 25);
  EXPECT_EQ(video["framerate_den"], 1);
  EXPECT_EQ(video["language"], "und");
  EXPECT_EQ(video["rotate"], 0);
  EXPECT_EQ(video["codec"], "h264");
  EXPECT_EQ(video["codec_tag"], "avc1");
  EXPECT_EQ(video["codec_raw"], "h264");
  EXPECT_EQ(video["pix_fmt"], "yuv420p");
  EXPECT_EQ(video["sample_aspect_ratio_num"], 1U);
  EXPECT_EQ(video["sample_aspect_ratio_den"], 1U);
  EXPECT_EQ(video["display_x"], 640);
  EXPECT_EQ(video["display_y"], 360);
  EXPECT_EQ(video["resolutionx"], 640U);
  EXPECT_EQ(video["resolutiony"], 360U);
  EXPECT_EQ(video["id"], "0");
  EXPECT_EQ(video["track"], "0");
  EXPECT_EQ(video.size(), 20U);

  const Json::Value audio = Audio(document);
  EXPECT_EQ(audio["channel"], 2);
  EXPECT_EQ(audio["streamid"], 2) << "the container's own number, from 1";
  EXPECT_EQ(audio["channel_layout"], "stereo");
  EXPECT_EQ(audio["sample_rate"], 48000);
  EXPECT_EQ(audio["codec"], "aac");
  EXPECT_EQ(audio["is_default"], Json::Value(true));
  EXPECT_EQ(audio["codec_raw"], "aac");
  EXPECT_EQ(audio["language"], "und");
  EXPECT_EQ(audio["profile"], "LC");
  EXPECT_EQ(audio["frequency"], 48000);
  EXPECT_GT(audio["bitrate"].asInt(), 60000);
  EXPECT_EQ(audio["id"], "1");
  EXPECT_EQ(audio["track"], "1");
  EXPECT_EQ(audio.size(), 13U);
  EXPECT_TRUE(document["track_info"]["subtitle"].isArray());
  EXPECT_TRUE(document["track_info"]["subtitle"].empty());
  EXPECT_TRUE(test::TakeLog().empty());
}

TEST_F(FilmProbe, MarksACoverAndNoFilm) {
  const Json::Value music = ProbeOf(
      "cover.flac", {"-f", "lavfi", "-i", "sine=d=1", "-f", "lavfi", "-i", "color=s=32x32:d=0.04",
                     "-map", "0", "-map", "1", "-c:v", "mjpeg", "-disposition:v", "attached_pic"});
  EXPECT_EQ(Video(music)["attached_pic"], true);
  EXPECT_FALSE(Video(music).isMember("dynamic_range"));
  EXPECT_FALSE(Video(music).isMember("colors"));
}

TEST_F(FilmProbe, TellsTheDynamicRangeOfFilmsThatHaveAHighOne) {
  struct Case {
    const char* transfer;
    std::string name;
    int number;
  };
  for (const auto& [transfer, name, number] :
       {Case{"smpte2084", "hdr10", 16}, Case{"arib-std-b67", "hlg", 18}}) {
    const Json::Value film =
        ProbeOf(name + ".mp4",
                {"-f", "lavfi", "-i", "color=s=64x48:d=0.2", "-c:v", "libx264", "-color_primaries",
                 "bt2020", "-color_trc", transfer, "-colorspace", "bt2020nc"});
    EXPECT_EQ(Video(film)["dynamic_range"], name);
    const Json::Value colors = Video(film)["colors"];
    EXPECT_EQ(colors["transfer"], number);
    EXPECT_EQ(colors["primaries"], 9);
    EXPECT_EQ(colors["matrix"], 9);
    EXPECT_EQ(colors["full_range"], false);
    EXPECT_FALSE(Video(film).isMember("attached_pic"));
  }
}

TEST_F(FilmProbe, TellsTheCodecsOfEveryFilm) {
  const struct {
    const char* film;
    const char* container;
    unsigned duration;
    const char* video;
    const char* audio;
    const char* audioRaw;
  } films[] = {
      {"h264_ac3.mkv", "matroska,webm", 60, "h264", "ac3", "ac3"},
      {"mpeg4_mp3.avi", "avi", 30, "mpeg4", "mp3", "mp3"},
      {"mpeg2_mp2.ts", "mpegts", 30, "mpeg2", "mp2", "mp2"},
      {"vp9_opus.webm", "matroska,webm", 30, "vp9", "", "opus"},
      {"hevc10_aac.mov", "mov,mp4,m4a,3gp,3g2,mj2", 30, "hevc", "aac", "aac"},
  };
  for (const auto& row : films) {
    const Json::Value document = Probe(test::Film(row.film));
    EXPECT_EQ(document["container_type"], row.container) << row.film;
    EXPECT_EQ(document["duration"], row.duration) << row.film;
    EXPECT_EQ(Video(document)["codec"], row.video) << row.film;
    EXPECT_EQ(Audio(document)["codec"], row.audio) << row.film;
    EXPECT_EQ(Audio(document)["codec_raw"], row.audioRaw) << row.film;
    EXPECT_EQ(Video(document)["resolutionx"], 640U) << row.film;
    EXPECT_EQ(Video(document)["resolutiony"], 360U) << row.film;
  }
}

TEST_F(FilmProbe, TellsTagsAsTheContainerWritesThem) {
  EXPECT_EQ(Video(Probe(test::Film("mpeg4_mp3.avi")))["codec_tag"], "FMP4");
  EXPECT_EQ(Video(Probe(test::Film("mpeg2_mp2.ts")))["codec_tag"], "[2][0][0][0]");
  EXPECT_EQ(Video(Probe(test::Film("mpeg2_mp2.ts")))["codec_raw"], "mpeg2video");
}

TEST_F(FilmProbe, TellsTheTransportStreamsPidAndStartTime) {
  const Json::Value document = Probe(test::Film("mpeg2_mp2.ts"));
  EXPECT_EQ(Audio(document)["streamid"], 0x101);
  EXPECT_EQ(document["start_time"], 1U);
}

TEST_F(FilmProbe, TellsTenBitHevc) {
  const Json::Value video = Video(Probe(test::Film("hevc10_aac.mov")));
  EXPECT_EQ(video["profile"], "Main 10");
  EXPECT_EQ(video["pix_fmt"], "yuv420p10le");
  EXPECT_EQ(video["codec_tag"], "hvc1");
}

TEST_F(FilmProbe, ReadsAnUnknownLevelAsZero) {
  EXPECT_EQ(Video(Probe(test::Film("vp9_opus.webm")))["level"], 0);
}

TEST_F(FilmProbe, TurnsThePictureOfAPortraitFilm) {
  const Json::Value video = Video(Probe(test::Film("portrait.mp4")));
  EXPECT_EQ(video["rotate"], 270);
  EXPECT_EQ(video["display_x"], 360);
  EXPECT_EQ(video["display_y"], 640);
  EXPECT_EQ(video["resolutionx"], 640U);
  EXPECT_EQ(video["resolutiony"], 360U);
}

TEST_F(FilmProbe, TurnsThePictureByAQuarterOnly) {
  const struct {
    const char* written;  // which the writer turns the other way round
    int rotate;
    bool turned;
  } cases[] = {{"90", 270, true}, {"270", 90, true}, {"180", 180, false}, {"0", 0, false}};
  for (const auto& row : cases) {
    const Json::Value video =
        Video(ProbeOf("turned.mp4", {"-t", "1", "-i", test::Film("h264_aac.mp4"), "-c", "copy",
                                     "-metadata:s:v", std::string("rotate=") + row.written}));
    EXPECT_EQ(video["rotate"], row.rotate);
    EXPECT_EQ(video["display_x"], row.turned ? 360 : 640) << row.rotate;
    EXPECT_EQ(video["display_y"], row.turned ? 640 : 360) << row.rotate;
  }
}

TEST_F(FilmProbe, ReadsARotationTagAsANumber) {
  const struct {
    const char* tag;
    int rotate;
    bool turned;
  } cases[] = {{"90", 90, true},    {"270", 270, true},  {"-90", -90, false},
               {"180", 180, false}, {"450", 450, false}, {"left", 0, false}};
  for (const auto& row : cases) {
    const Json::Value video =
        Video(ProbeOf("turned.mkv", {"-t", "1", "-i", test::Film("h264_ac3.mkv"), "-c", "copy",
                                     "-metadata:s:v", std::string("ROTATE=") + row.tag}));
    EXPECT_EQ(video["rotate"], row.rotate);
    EXPECT_EQ(video["display_x"], row.turned ? 360 : 640) << row.tag;
    EXPECT_EQ(video["resolutionx"], 640U);
  }
}

TEST_F(FilmProbe, MeasuresTheDisplayFromTheSampleAspectRatio) {
  const struct {
    const char* size;
    const char* ratio;
    unsigned num;
    unsigned den;
    int x;
    int y;
  } cases[] = {
      {"720x576", "16/15", 16, 15, 768, 576}, {"720x480", "32/27", 32, 27, 853, 480},
      {"1440x1080", "4/3", 4, 3, 1920, 1080}, {"1080x1920", "1/1", 1, 1, 1080, 1920},
      {"480x480", "2/1", 2, 1, 480, 240},
  };
  for (const auto& row : cases) {
    const Json::Value video = Video(
        ProbeOf("shaped.mkv", {"-f", "lavfi", "-i", std::string("color=s=") + row.size + ":d=0.1",
                               "-vf", std::string("setsar=") + row.ratio, "-c:v", "mpeg4"}));
    EXPECT_EQ(video["sample_aspect_ratio_num"], row.num) << row.size;
    EXPECT_EQ(video["sample_aspect_ratio_den"], row.den) << row.size;
    EXPECT_EQ(video["display_x"], row.x) << row.size;
    EXPECT_EQ(video["display_y"], row.y) << row.size;
  }
}

TEST_F(FilmProbe, DividesTheFrameRateInSinglePrecision) {
  const Json::Value video = Video(ProbeOf(
      "ntsc.mkv", {"-f", "lavfi", "-i", "color=s=64x48:r=30000/1001:d=1", "-c:v", "mpeg4"}));
  EXPECT_EQ(video["framerate"].asDouble(), 29.970029830932617);
  EXPECT_EQ(video["framerate_num"], 30000);
  EXPECT_EQ(video["framerate_den"], 1001);
}

// What a container says of uncompressed sound is often wrong.
TEST_F(FilmProbe, CountsTheBitsOfUncompressedSound) {
  constexpr int64_t kSaid = 12345;
  const struct {
    AVCodecID codec;
    int64_t bitrate;  // stereo at 48 kHz
  } cases[] = {
      {AV_CODEC_ID_PCM_S16LE, 1536000}, {AV_CODEC_ID_PCM_S16BE, 1536000},
      {AV_CODEC_ID_PCM_U16LE, 1536000}, {AV_CODEC_ID_PCM_U16BE, 1536000},
      {AV_CODEC_ID_PCM_S8, 768000},     {AV_CODEC_ID_PCM_U8, 768000},
      {AV_CODEC_ID_PCM_MULAW, 768000},  {AV_CODEC_ID_PCM_ALAW, 768000},
      {AV_CODEC_ID_PCM_S24LE, kSaid},   {AV_CODEC_ID_PCM_S32LE, kSaid},
      {AV_CODEC_ID_PCM_F32LE, kSaid},   {AV_CODEC_ID_PCM_BLURAY, kSaid},
      {AV_CODEC_ID_PCM_DVD, kSaid},     {AV_CODEC_ID_AAC, kSaid},
  };
  for (const auto& row : cases) {
    Sound sound(row.codec);
    sound.parameters.bit_rate = kSaid;
    EXPECT_EQ(LibOrvoQMX::ParseAudioCodec(&sound.stream)["bitrate"].asInt64(), row.bitrate)
        << row.codec;
  }
}

TEST_F(FilmProbe, TellsSoundWithoutASampleRate) {
  Sound sound(AV_CODEC_ID_AAC);
  sound.parameters.sample_rate = 0;
  const Json::Value track = LibOrvoQMX::ParseAudioCodec(&sound.stream);
  EXPECT_EQ(track["sample_rate"], 0);
  EXPECT_FALSE(track.isMember("frequency"));
}

TEST_F(FilmProbe, TellsAPictureWithoutASize) {
  Picture picture;
  picture.parameters.width = 0;
  picture.parameters.sample_aspect_ratio = {4, 3};
  picture.stream.sample_aspect_ratio = {4, 3};
  const Json::Value track = LibOrvoQMX::ParseVideoCodec(&picture.stream);
  for (const char* key : {"resolutionx", "resolutiony", "display_x", "display_y",
                          "sample_aspect_ratio_num", "sample_aspect_ratio_den"}) {
    EXPECT_EQ(track[key].asInt(), 0) << key;
  }
}

TEST_F(FilmProbe, TakesTheCodecsAspectRatioBeforeTheContainers) {
  Picture picture;
  picture.parameters.sample_aspect_ratio = {16, 15};
  picture.stream.sample_aspect_ratio = {4, 3};
  const auto numerator = [&] {
    return LibOrvoQMX::ParseVideoCodec(&picture.stream)["sample_aspect_ratio_num"].asInt();
  };
  EXPECT_EQ(numerator(), 16);
  picture.parameters.sample_aspect_ratio = {0, 1};
  EXPECT_EQ(numerator(), 4);
  picture.stream.sample_aspect_ratio = {-1, 1};
  EXPECT_EQ(numerator(), 0);
}

TEST_F(FilmProbe, KeepsTheDisplaySizeIfThereIsNoAspectRatio) {
  Picture picture;
  picture.stream.sample_aspect_ratio = {4, 0};
  const Json::Value track = LibOrvoQMX::ParseVideoCodec(&picture.stream);
  EXPECT_EQ(track["sample_aspect_ratio_num"], 4U);
  EXPECT_EQ(track["sample_aspect_ratio_den"], 0U);
  EXPECT_EQ(track["display_x"], 720);
  EXPECT_EQ(track["display_y"], 576);
}

TEST_F(FilmProbe, TellsAFrameRateOnlyIfThereIsOne) {
  Picture picture;
  const struct {
    AVRational average;
    bool isTold;
  } cases[] = {{{25, 1}, true}, {{0, 1}, false}, {{25, 0}, false}};
  for (const auto& row : cases) {
    picture.stream.avg_frame_rate = row.average;
    EXPECT_EQ(LibOrvoQMX::ParseVideoCodec(&picture.stream).isMember("framerate"), row.isTold);
  }
}

TEST_F(FilmProbe, ReadsOnlyNegativeLevelsAsZero) {
  Picture picture;
  for (const int level : {-99, -1, 0, 1, 41}) {
    picture.parameters.level = level;
    EXPECT_EQ(LibOrvoQMX::ParseVideoCodec(&picture.stream)["level"], std::max(level, 0));
  }
}

TEST_F(FilmProbe, NamesAPixelFormatThatIsUnset) {
  Picture picture;
  picture.parameters.format = AV_PIX_FMT_NONE;
  EXPECT_EQ(LibOrvoQMX::ParseVideoCodec(&picture.stream)["pix_fmt"], "none");
}

TEST_F(FilmProbe, TellsNothingOfACodecThatIsUnknown) {
  Picture picture;
  picture.parameters.codec_id = AV_CODEC_ID_NONE;
  const Json::Value track = LibOrvoQMX::ParseVideoCodec(&picture.stream);
  EXPECT_EQ(track["profile"], "");
  EXPECT_EQ(track["codec"], "");
  EXPECT_EQ(track["codec_raw"], "");
  EXPECT_EQ(track["language"], "");
}

TEST_F(FilmProbe, NamesTheChannelLayout) {
  const Json::Value document = ProbeOf(
      "six.mkv", {"-f", "lavfi", "-i", "anullsrc=cl=5.1(side):r=48000:d=0.2", "-c:a", "ac3"});
  EXPECT_EQ(Audio(document)["channel"], 6);
  EXPECT_EQ(Audio(document)["channel_layout"], "5.1(side)");
}

TEST_F(FilmProbe, NumbersTheTracksThatItKeepsAndPointsIntoTheContainer) {
  // Streams in the order video, sound, time code, sound.
  ProbeOf("coded.mov", {"-f", "lavfi", "-i", "color=s=64x48:d=1", "-f", "lavfi", "-i", "sine=d=1",
                        "-timecode", "00:00:00:00", "-c:v", "mpeg4", "-c:a", "pcm_s16le"});
  const Json::Value document =
      ProbeOf("gap.mov", {"-i", Path("/coded.mov"), "-map", "0:a", "-map", "0:d", "-map", "0:a",
                          "-map", "0:v", "-c", "copy", "-write_tmcd", "0"});
  const Json::Value& tracks = document["track_info"];
  ASSERT_EQ(tracks["audio"].size(), 2U);
  ASSERT_EQ(tracks["video"].size(), 1U);
  EXPECT_EQ(Audio(document, 0)["id"], "0");
  EXPECT_EQ(Audio(document, 0)["track"], "0");
  EXPECT_EQ(Audio(document, 1)["id"], "1");
  EXPECT_EQ(Audio(document, 1)["track"], "2");
  EXPECT_EQ(Video(document)["id"], "2");
  EXPECT_EQ(Video(document)["track"], "3");
}

TEST_F(FilmProbe, TellsSubtitlesWithTheirTitles) {
  Write("/words.srt", "1\n00:00:00,000 --> 00:00:01,000\nHello\n");
  const Json::Value document = ProbeOf("words.mkv", {"-f",
                                                     "lavfi",
                                                     "-i",
                                                     "sine=d=1",
                                                     "-i",
                                                     Path("/words.srt"),
                                                     "-map",
                                                     "1",
                                                     "-map",
                                                     "0",
                                                     "-map",
                                                     "1",
                                                     "-c:s:0",
                                                     "srt",
                                                     "-c:s:1",
                                                     "ass",
                                                     "-c:a",
                                                     "ac3",
                                                     "-metadata:s:s:0",
                                                     "language=eng",
                                                     "-metadata:s:s:0",
                                                     "title=Plain words"});
  const Json::Value& subtitles = document["track_info"]["subtitle"];
  ASSERT_EQ(subtitles.size(), 2U);
  EXPECT_EQ(subtitles[0]["language"], "eng");
  EXPECT_EQ(subtitles[0]["title"], "Plain words");
  EXPECT_EQ(subtitles[0]["codec"], "subrip");
  EXPECT_EQ(subtitles[0]["id"], "0");
  EXPECT_EQ(subtitles[0]["track"], "0");
  EXPECT_EQ(subtitles[1]["language"], "");
  EXPECT_EQ(subtitles[1]["title"], "");
  EXPECT_EQ(subtitles[1]["codec"], "ass");
  EXPECT_EQ(subtitles[1]["id"], "2");
  EXPECT_EQ(Audio(document)["id"], "1");
}

TEST_F(FilmProbe, TellsLanguagesAndDefaultTracks) {
  const Json::Value document = Probe(test::Film("two_audio.mkv"));
  EXPECT_EQ(Audio(document, 0)["language"], "eng");
  EXPECT_EQ(Audio(document, 0)["is_default"], Json::Value(true));
  EXPECT_EQ(Audio(document, 1)["language"], "fre");
  EXPECT_EQ(Audio(document, 1)["is_default"], Json::Value(false));
  EXPECT_EQ(Audio(document, 1)["codec"], "aac");
  EXPECT_EQ(Audio(document, 1)["id"], "2");
}

TEST_F(FilmProbe, TellsFilmsWithoutSoundAndSoundWithoutAFilm) {
  const Json::Value silent = Probe(test::Film("no_audio.mkv"));
  EXPECT_EQ(silent["track_info"]["video"].size(), 1U);
  EXPECT_EQ(silent["track_info"]["audio"].size(), 0U);
  EXPECT_TRUE(silent["track_info"]["audio"].isArray());
  const Json::Value dark = Probe(test::Film("no_video.mka"));
  EXPECT_EQ(dark["track_info"]["video"].size(), 0U);
  EXPECT_EQ(dark["track_info"]["audio"].size(), 1U);
}

TEST_F(FilmProbe, DoesNotClampUnknownTimes) {
  const Json::Value document =
      ProbeOf("raw.h264", {"-t", "1", "-i", test::Film("h264_ac3.mkv"), "-map", "0:v", "-c", "copy",
                           "-bsf:v", "h264_mp4toannexb"});
  EXPECT_EQ(document["container_type"], "h264");
  EXPECT_EQ(document["duration"], kUnknownTime);
  EXPECT_EQ(document["start_time"], kUnknownTime);
}

TEST_F(FilmProbe, ReadsTheRestOfACutFilm) {
  EXPECT_EQ(Video(Probe(test::Film("truncated.mkv")))["codec"], "h264");
}

TEST_F(FilmProbe, RefusesFilesThatAreNotFilms) {
  for (const char* name :
       {"truncated.mp4", "zeros.mkv", "text.mkv", "empty.mkv", "playlist.mkv", "script.mkv"}) {
    Json::Value document(Json::objectValue);
    EXPECT_FALSE(VideoMetaData::ReadMetaDataFromFFMPEG(test::Film(name), document)) << name;
    EXPECT_EQ(document["path"], test::Film(name));
    EXPECT_TRUE(document["filesize"].isString());
    EXPECT_FALSE(document.isMember("track_info")) << name;
    EXPECT_EQ(test::TakeLogTexts(), List{"video_metadata:N ParserMetaDataFromFFMPEG fail."})
        << name;
  }
}

TEST_F(FilmProbe, WritesTheSizeOfAnEmptyFileBeforeItFails) {
  Json::Value document(Json::objectValue);
  EXPECT_FALSE(VideoMetaData::ReadMetaDataFromFFMPEG(test::Film("empty.mkv"), document));
  EXPECT_EQ(document["filesize"], "0");
}

TEST_F(FilmProbe, ChangesNothingForAMissingPath) {
  for (const std::string& path : {std::string(), Path("/missing.mkv")}) {
    Json::Value document(Json::objectValue);
    EXPECT_FALSE(VideoMetaData::ReadMetaDataFromFFMPEG(path, document));
    EXPECT_TRUE(document.empty());
    EXPECT_TRUE(test::TakeLog().empty());
  }
}

TEST_F(FilmProbe, TreatsEveryPathAsAFile) {
  const std::string content = test::ReadWhole(test::Film("vp9_opus.webm"));
  for (const char* name :
       {"/concat:a|b.webm", "/http:film.webm", "/%d film?x=1#y.webm", "/-i.webm"}) {
    Write(name, content);
    EXPECT_EQ(Video(Probe(Path(name)))["codec"], "vp9") << name;
  }
  ASSERT_EQ(chdir(Root().c_str()), 0);
  EXPECT_EQ(Video(Probe("http:film.webm"))["codec"], "vp9");
  ASSERT_EQ(chdir("/"), 0);
}

TEST_F(FilmProbe, OpensFilesOnlyAndOnlyFilms) {
  const Opening opening;
  Write("/film.webm", test::ReadWhole(test::Film("vp9_opus.webm")));
  Probe(Path("/film.webm"));
  EXPECT_EQ(Opening::Address(), "file:" + Path("/film.webm"));
  EXPECT_EQ(Opening::Protocols(), "file");
  EXPECT_EQ(Opening::Formats(), orvo::kSelfContainedFormats);
  EXPECT_TRUE(Opening::HasChosenAll());
}

TEST_F(FilmProbe, OpensAFilmOnce) {
  const Opening opening;
  Write("/film.webm", test::ReadWhole(test::Film("vp9_opus.webm")));
  const Json::Value first = Probe(Path("/film.webm"));
  EXPECT_EQ(Probe(Path("/film.webm")), first);
  EXPECT_EQ(Opening::Count(), 1);
  Write("/film.webm", test::ReadWhole(test::Film("h264_ac3.mkv")));
  EXPECT_EQ(Video(Probe(Path("/film.webm")))["codec"], "h264");
  EXPECT_EQ(Opening::Count(), 2);
}

TEST_F(FilmProbe, ReadsTheFilmInAProcessThatIsGoneAfterwards) {
  const Opening opening;
  Probe(NewFilm());
  EXPECT_NE(Opening::Pid(), getpid());
  EXPECT_FALSE(PlatProcAlive(Opening::Pid()));
  EXPECT_TRUE(test::HasNoChild());
}

// What a film that has taken a decoder over would try.
class TakenOver {
 public:
  explicit TakenOver(int (*attack)())
      : media_(const_cast<MediaLibraries&>(*MediaLibraries::Get())) {
    attack_ = attack;
    open_ = std::exchange(media_.avformat_open_input, Attack);
  }
  TakenOver(const TakenOver&) = delete;
  TakenOver& operator=(const TakenOver&) = delete;
  ~TakenOver() { media_.avformat_open_input = open_; }

 private:
  static int Attack(AVFormatContext** context, const char* url, const AVInputFormat* format,
                    AVDictionary** options) {
    // Only what fails lets the film go on.
    return attack_() == 0 ? -1 : open_(context, url, format, options);
  }

  static inline decltype(MediaLibraries::avformat_open_input) open_ = nullptr;
  static inline int (*attack_)() = nullptr;
  MediaLibraries& media_;
};

TEST_F(FilmProbe, GivesAFilmThatTakesItOverNothing) {
  for (int (*const attack)() :
       {+[] { return open("/etc/passwd", O_RDONLY) < 0 ? errno : 0; },
        +[] { return open("/tmp/taken", O_WRONLY | O_CREAT, 0600) < 0 ? errno : 0; },
        +[] { return socket(AF_INET, SOCK_STREAM, 0) < 0 ? errno : 0; },
        +[] { return kill(getppid(), SIGCONT) < 0 ? errno : 0; },
        +[] {
          constexpr size_t kTooMuch = 513 << 20;
          void* const memory = mmap(nullptr, kTooMuch, PROT_READ | PROT_WRITE,
                                    MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
          return memory == MAP_FAILED ? errno : 0;
        }}) {
    const TakenOver film(attack);
    EXPECT_EQ(Video(Probe(NewFilm()))["codec"], "vp9");
  }
}

TEST_F(FilmProbe, IsGivenUpWhenItDiesOrOutlastsItsTime) {
  Write("/var/packages/Mirevo/etc/confinement.conf", "probe_wall=1\n");
  const struct {
    int (*attack)();
    const char* reason;
  } cases[] = {{+[]() -> int { abort(); }, "died."},
               {+[]() -> int { test::SleepUntilKilled(); }, "was given up: Connection timed out."}};
  for (const auto& row : cases) {
    const TakenOver film(row.attack);
    Json::Value document(Json::objectValue);
    EXPECT_FALSE(VideoMetaData::ReadMetaDataFromFFMPEG(NewFilm(), document));
    EXPECT_FALSE(document.isMember("track_info"));
    const List log = test::TakeLogTexts();
    ASSERT_EQ(log.size(), 2U);
    EXPECT_NE(log[0].find(row.reason), std::string::npos) << log[0];
    EXPECT_EQ(log[1], "video_metadata:N ParserMetaDataFromFFMPEG fail.");
    EXPECT_TRUE(test::HasNoChild());
  }
}

// The description that a well-known server puts first into a recording. FFmpeg reads these with a
// demuxer of their own.
std::string LiveDescription() {
  using namespace std::string_literals;
  const std::string server = "NGINX RTMP (github.com/arut/nginx-rtmp-module)";
  const std::string data = "\x02\0\x0aonMetaData\x03\0\x06Server\x02\0"s +
                           static_cast<char>(server.size()) + server + "\0\0\x09"s;
  const auto size = static_cast<char>(data.size());
  return "\x12\0\0"s + size + "\0\0\0\0\0\0\0"s + data + "\0\0\0"s +
         static_cast<char>(data.size() + 11);
}

TEST_F(FilmProbe, ReadsRecordingsOfLiveRecorders) {
  ProbeOf("live.flv", {"-t", "1", "-i", test::Film("h264_aac.mp4"), "-c", "copy"});
  std::string content = Read("/live.flv");
  constexpr size_t kHeader = 13;
  Write("/live.flv", content.insert(kHeader, LiveDescription()));
  const Json::Value document = Probe(Path("/live.flv"));
  EXPECT_EQ(document["container_type"], "live_flv");
  EXPECT_EQ(Video(document)["codec"], "h264");
  EXPECT_EQ(Audio(document)["codec"], "aac");
}

TEST_F(FilmProbe, ReadsTheSoundOfOldCinemasAndConsoles) {
  const struct {
    const char* name;
    const char* rate;
    const char* channels;
    const char* codec;
  } cases[] = {{"cinema.302", "96000", "6", "pcm_s24daud"},
               {"console.adx", "44100", "2", "adpcm_adx"}};
  for (const auto& row : cases) {
    const Json::Value document =
        ProbeOf(row.name, {"-f", "lavfi", "-i", "sine=d=1", "-ar", row.rate, "-ac", row.channels});
    EXPECT_EQ(Audio(document)["codec"], row.codec);
  }
}

TEST_F(FilmProbe, RefusesWithoutOutput) {
  testing::internal::CaptureStderr();
  for (const char* name : {"playlist.mkv", "script.mkv", "text.mkv", "truncated.mp4"}) {
    Json::Value document(Json::objectValue);
    VideoMetaData::ReadMetaDataFromFFMPEG(test::Film(name), document);
  }
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
}

TEST_F(FilmProbe, RestoresTheLogLevelOfTheLibraries) {
  const MediaLibraries& media = *MediaLibraries::Get();
  media.av_log_set_level(AV_LOG_WARNING);
  Probe(test::Film("h264_aac.mp4"));
  EXPECT_EQ(media.av_log_get_level(), AV_LOG_WARNING);
  media.av_log_set_level(AV_LOG_INFO);
}

TEST_F(FilmProbe, FollowsNoPlaylistOfAnyName) {
  for (const char* name : {"/list.m3u8", "/list.ffconcat", "/list.sdp", "/list.mpd", "/list.mp4"}) {
    for (const char* source : {"playlist.mkv", "script.mkv"}) {
      std::string content = test::ReadWhole(test::Film(source));
      content.replace(content.find("h264_aac.mp4"), 12, test::Film("h264_aac.mp4"));
      Write(name, content);
      Json::Value document(Json::objectValue);
      EXPECT_FALSE(VideoMetaData::ReadMetaDataFromFFMPEG(Path(name), document)) << name;
    }
  }
}

// Loading the media libraries is a part of the first probe; nothing of it may cost the process its
// ids.
TEST_F(FilmProbe, RunsAsRootAndRestoresTheIds) {
  if (geteuid() != 0) {
    GTEST_SKIP() << "needs root";
  }
  Write("/private.webm", test::ReadWhole(test::Film("vp9_opus.webm")));
  ASSERT_EQ(chmod(Path("/private.webm").c_str(), 0600), 0);
  const struct {
    uid_t real, effective, saved;
    bool mayRead;
  } users[] = {{65534, 65534, 0, true}, {65534, 0, 0, true}, {0, 65534, 0, true},
               {0, 65534, 65534, true}, {0, 0, 0, true},     {65534, 65534, 65534, false}};
  for (const auto& user : users) {
    test::InChild([this, &user] {
      ASSERT_EQ(setresuid(user.real, user.effective, user.saved), 0);
      Json::Value document(Json::objectValue);
      EXPECT_EQ(VideoMetaData::ReadMetaDataFromFFMPEG(Path("/private.webm"), document),
                user.mayRead);
      uid_t real = 1;
      uid_t effective = 1;
      uid_t saved = 1;
      getresuid(&real, &effective, &saved);
      EXPECT_EQ(real, user.real);
      EXPECT_EQ(effective, user.effective);
      EXPECT_EQ(saved, user.saved);
    });
  }
}

TEST_F(FilmProbe, LeavesNoDescriptorOpen) {
  const auto count = [] {
    int open = 0;
    for (int fd = 0; fd < 256; ++fd) {
      open += access(("/proc/self/fd/" + std::to_string(fd)).c_str(), F_OK) == 0 ? 1 : 0;
    }
    return open;
  };
  Json::Value document(Json::objectValue);
  VideoMetaData::ReadMetaDataFromFFMPEG(test::Film("h264_ac3.mkv"), document);
  const int before = count();
  for (const char* name : {"h264_ac3.mkv", "text.mkv", "truncated.mp4", "empty.mkv"}) {
    VideoMetaData::ReadMetaDataFromFFMPEG(test::Film(name), document);
  }
  EXPECT_EQ(count(), before);
}

}  // namespace
