#include "metadata/video_metadata.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include "support/log_capture.h"
#include "support/streams.h"

namespace {

using LibOrvoQMX::VideoMetaData;

class Metadata : public test::StreamTest {};

TEST_F(Metadata, AnswersDefaultsWhenNothingIsLoaded) {
  const VideoMetaData metadata;
  Json::Value videos = "v";
  Json::Value audios = "a";
  EXPECT_EQ(metadata.GetMemberUI("duration"), 0U);
  EXPECT_EQ(metadata.GetMemberString("path"), "");
  EXPECT_TRUE(metadata.GetVideo(0).isNull());
  EXPECT_TRUE(metadata.GetAudio(0).isNull());
  EXPECT_FALSE(metadata.GetTrackInfo(videos, audios));
  EXPECT_FALSE(metadata.GetSubtitleTrackInfo(videos));
  EXPECT_EQ(metadata.GetContainer(), "");
  EXPECT_EQ(metadata.GetFilePath(), "");
  EXPECT_EQ(metadata.GetStartTime(), 0U);
  EXPECT_EQ(metadata.GetDuration(), 0U);
  EXPECT_EQ(metadata.GetBitrate(), 0U);
  EXPECT_EQ(metadata.GetFileSize(), 0U);
  EXPECT_EQ(metadata.GetAudioFreqency(), 0U);
  EXPECT_EQ(metadata.GetAudioChannel(), 0U);
  EXPECT_EQ(metadata.GetAudioBitrate(), 0U);
  EXPECT_EQ(metadata.GetAudioCodecName(), "");
  EXPECT_EQ(metadata.GetVideoFramerate(), 0.0F);
  EXPECT_EQ(metadata.GetVideoFramerateDen(), 0);
  EXPECT_EQ(metadata.GetVideoFramerateNum(), 0);
  EXPECT_EQ(metadata.GetVideoSampleAspectRatioDen(), 0);
  EXPECT_EQ(metadata.GetVideoSampleAspectRatioNum(), 0);
  EXPECT_EQ(metadata.GetVideoLevel(), 0U);
  EXPECT_EQ(metadata.GetVideoResolutionX(), 0U);
  EXPECT_EQ(metadata.GetVideoResolutionY(), 0U);
  EXPECT_EQ(metadata.GetVideoDisplayX(), 0U);
  EXPECT_EQ(metadata.GetVideoDisplayY(), 0U);
  EXPECT_EQ(metadata.GetVideoRotate(), 0U);
  EXPECT_EQ(metadata.GetVideoBitrate(), 0U);
  EXPECT_EQ(metadata.GetVideoPixFmt(), "");
  EXPECT_EQ(metadata.GetVideoProfile(), "");
  EXPECT_EQ(metadata.GetVideoCodecTag(), "");
  EXPECT_EQ(metadata.GetVideoCodecName(), "");
  EXPECT_EQ(metadata.GetVideoRatio(), 1.77F);
}

TEST_F(Metadata, EveryNamedGetterReadsItsKey) {
  const VideoMetaData metadata = Load(test::ParseText(R"({
    "path": "p", "container_type": "c", "start_time": 11, "duration": 12, "bitrate": 13,
    "filesize": "4294967296",
    "track_info": {
      "video": [{"framerate": 29.970029830932617, "framerate_den": 21, "framerate_num": 22,
        "sample_aspect_ratio_den": 23, "sample_aspect_ratio_num": 24, "level": 25,
        "resolutionx": 1920, "resolutiony": 1080, "display_x": 28, "display_y": 29, "rotate": 90,
        "bitrate": 31, "pix_fmt": "pf", "profile": "pr", "codec_tag": "ct", "codec": "cv"}],
      "audio": [{"frequency": 41, "channel": 42, "bitrate": 43, "codec": "ca"}]}})"));
  EXPECT_EQ(metadata.GetFilePath(), "p");
  EXPECT_EQ(metadata.GetContainer(), "c");
  EXPECT_EQ(metadata.GetStartTime(), 11U);
  EXPECT_EQ(metadata.GetDuration(), 12U);
  EXPECT_EQ(metadata.GetBitrate(), 13U);
  EXPECT_EQ(metadata.GetFileSize(), 4294967296U);
  EXPECT_EQ(metadata.GetAudioFreqency(), 41U);
  EXPECT_EQ(metadata.GetAudioChannel(), 42U);
  EXPECT_EQ(metadata.GetAudioBitrate(), 43U);
  EXPECT_EQ(metadata.GetAudioCodecName(), "ca");
  EXPECT_EQ(metadata.GetVideoFramerate(), 30000.0F / 1001.0F);
  EXPECT_EQ(metadata.GetVideoFramerateDen(), 21);
  EXPECT_EQ(metadata.GetVideoFramerateNum(), 22);
  EXPECT_EQ(metadata.GetVideoSampleAspectRatioDen(), 23);
  EXPECT_EQ(metadata.GetVideoSampleAspectRatioNum(), 24);
  EXPECT_EQ(metadata.GetVideoLevel(), 25U);
  EXPECT_EQ(metadata.GetVideoResolutionX(), 1920U);
  EXPECT_EQ(metadata.GetVideoResolutionY(), 1080U);
  EXPECT_EQ(metadata.GetVideoDisplayX(), 28U);
  EXPECT_EQ(metadata.GetVideoDisplayY(), 29U);
  EXPECT_EQ(metadata.GetVideoRotate(), 90U);
  EXPECT_EQ(metadata.GetVideoBitrate(), 31U);
  EXPECT_EQ(metadata.GetVideoPixFmt(), "pf");
  EXPECT_EQ(metadata.GetVideoProfile(), "pr");
  EXPECT_EQ(metadata.GetVideoCodecTag(), "ct");
  EXPECT_EQ(metadata.GetVideoCodecName(), "cv");
  EXPECT_EQ(metadata.GetVideoRatio(), 1920.0F / 1080.0F) << "the coded size, whatever the rotation";
}

TEST_F(Metadata, OfSoundAloneAnswersDefaultsForThePicture) {
  const VideoMetaData metadata =
      Load(test::ParseText(R"({"track_info":{"video":[],"audio":[{"codec":"mp3"}]}})"));
  Json::Value videos;
  Json::Value audios;
  EXPECT_TRUE(metadata.GetTrackInfo(videos, audios));
  EXPECT_TRUE(videos.isArray() && videos.empty());
  EXPECT_EQ(audios.size(), 1U);
  EXPECT_EQ(metadata.GetVideoResolutionX(), 0U);
  EXPECT_EQ(metadata.GetVideoCodecName(), "");
  EXPECT_EQ(metadata.GetVideoFramerate(), 0.0F);
  EXPECT_EQ(metadata.GetVideoRatio(), 1.77F);
  EXPECT_EQ(metadata.GetAudioCodecName(), "mp3");
}

TEST_F(Metadata, WithoutAnAudioListGivesTheVideosAndFails) {
  const VideoMetaData metadata = Load(test::ParseText(R"({"track_info":{"video":[{"id":"0"}]}})"));
  Json::Value videos;
  Json::Value audios = "untouched";
  EXPECT_FALSE(metadata.GetTrackInfo(videos, audios));
  EXPECT_EQ(videos.size(), 1U);
  EXPECT_EQ(audios, "untouched");
  EXPECT_TRUE(metadata.GetVideo(0).isNull()) << "the track summary cannot be read";
}

TEST_F(Metadata, WithoutAVideoListFailsAndChangesNothing) {
  for (const char* text : {R"({"track_info":{"audio":[]}})", R"({"track_info":{}})", "{}"}) {
    const VideoMetaData metadata = Load(test::ParseText(text));
    Json::Value videos = "untouched";
    Json::Value audios = "untouched";
    EXPECT_FALSE(metadata.GetTrackInfo(videos, audios)) << text;
    EXPECT_EQ(videos, "untouched");
    EXPECT_EQ(audios, "untouched");
  }
}

TEST_F(Metadata, GivesEveryTrackByItsIndex) {
  const VideoMetaData metadata = Load(test::FilmRecord("x"));
  EXPECT_EQ(metadata.GetVideo(0)["codec"], "h264");
  EXPECT_TRUE(metadata.GetVideo(1).isNull());
  EXPECT_EQ(metadata.GetAudio(0)["codec"], "ac3");
  EXPECT_EQ(metadata.GetAudio(1)["codec"], "aac");
  EXPECT_TRUE(metadata.GetAudio(2).isNull());
  EXPECT_TRUE(metadata.GetAudio(UINT_MAX).isNull());
}

TEST_F(Metadata, GivesTheSubtitlesByThemselves) {
  Json::Value subtitles;
  EXPECT_TRUE(Load(test::ParseText(R"({"track_info":{"subtitle":[{"codec":"ass"}]}})"))
                  .GetSubtitleTrackInfo(subtitles));
  EXPECT_EQ(subtitles[0]["codec"], "ass");
  EXPECT_FALSE(
      Load(test::ParseText(R"({"track_info":{"video":[]}})")).GetSubtitleTrackInfo(subtitles));
}

TEST_F(Metadata, TreatsValuesOfAnotherTypeAsAbsent) {
  const VideoMetaData metadata = Load(test::ParseText(R"({
    "duration": [], "bitrate": {}, "start_time": null, "path": 5, "container_type": ["x"],
    "filesize": "many",
    "track_info": {
      "video": [{"level": "40", "resolutionx": 1.5, "resolutiony": null, "codec": 7,
                 "framerate": [], "framerate_num": "x", "rotate": {}}],
      "audio": [{"frequency": "48000", "codec": {}}]}})"));
  EXPECT_EQ(metadata.GetDuration(), 0U);
  EXPECT_EQ(metadata.GetBitrate(), 0U);
  EXPECT_EQ(metadata.GetStartTime(), 0U);
  EXPECT_EQ(metadata.GetFilePath(), "");
  EXPECT_EQ(metadata.GetContainer(), "");
  EXPECT_EQ(metadata.GetFileSize(), 0U);
  EXPECT_EQ(metadata.GetVideoLevel(), 0U);
  EXPECT_EQ(metadata.GetVideoResolutionX(), 0U);
  EXPECT_EQ(metadata.GetVideoResolutionY(), 0U);
  EXPECT_EQ(metadata.GetVideoCodecName(), "");
  EXPECT_EQ(metadata.GetVideoFramerate(), 0.0F);
  EXPECT_EQ(metadata.GetVideoFramerateNum(), 0);
  EXPECT_EQ(metadata.GetVideoRotate(), 0U);
  EXPECT_EQ(metadata.GetAudioFreqency(), 0U);
  EXPECT_EQ(metadata.GetAudioCodecName(), "");
}

// Asks everything; the answers do not matter.
void AskEverything(const VideoMetaData& metadata) {
  Json::Value a;
  Json::Value b;
  for (const char* key : {"path", "duration", "track_info", "filesize", "", "bitrate"}) {
    metadata.GetMemberUI(key);
    metadata.GetMemberString(key);
    metadata.GetFirstVideoMemberInt(key);
    metadata.GetFirstVideoMemberUI(key);
    metadata.GetFirstVideoMemberString(key);
    metadata.GetFirstAudioMemberUI(key);
    metadata.GetFirstAudioMemberString(key);
  }
  metadata.GetVideo(0);
  metadata.GetAudio(0);
  metadata.GetTrackInfo(a, b);
  metadata.GetSubtitleTrackInfo(a);
  metadata.GetVideoFramerate();
  metadata.GetVideoRatio();
  metadata.GetFileSize();
}

TEST_F(Metadata, WithOddShapesIsReadWithoutThrowing) {
  for (const char* text :
       {"[]", "[1]", "5", "\"text\"", "null", "true", "1e300", R"({"track_info":5})",
        R"({"track_info":[]})", R"({"track_info":{"video":5,"audio":"x","subtitle":7}})",
        R"({"track_info":{"video":{},"audio":{}}})", R"({"track_info":{"video":[5],"audio":[[]]}})",
        R"({"track_info":{"video":[null],"audio":["x"]}})",
        R"({"duration":-1,"bitrate":1e300,"start_time":-9223372036854775808,"filesize":5})",
        R"({"duration":18446744073709551615,"path":{"a":1}})",
        R"({"track_info":{"video":[{"path":-5,"duration":1e99,"bitrate":true,"framerate":1e99}],
            "audio":[{"bitrate":99999999999}]}})"}) {
    MakeDirectory(Directory("HTTP"));
    Write(Directory("HTTP") + "/video_metadata", text);
    LibOrvoQMX::QMXMetaData record(test::kId, "HTTP");
    EXPECT_NO_THROW({
      record.LoadMetaData();
      AskEverything(record);
      record.IsHLSHeader();
      record.IsUsePreAnalysis();
      record.GetProfileValue();
    }) << text;
    EXPECT_NO_THROW(record.LoadMetaData()) << "a second time: " << text;
  }
}

TEST_F(Metadata, IsCopiedAsAValue) {
  const VideoMetaData original = Load(test::FilmRecord("x"));
  VideoMetaData copy = original;
  EXPECT_FALSE(copy.LoadFile(Path("/missing")));
  EXPECT_EQ(copy.GetFilePath(), "");
  EXPECT_EQ(original.GetFilePath(), "/volume1/video/film.mkv");
}

TEST_F(Metadata, OfAnEmptyPathStaysUnchanged) {
  VideoMetaData metadata = Load(test::FilmRecord("x"));
  EXPECT_FALSE(metadata.LoadFile(""));
  EXPECT_EQ(metadata.GetFilePath(), "/volume1/video/film.mkv");
}

TEST_F(Metadata, OfALoadedFileIsNotProbedAgain) {
  VideoMetaData metadata = Load(test::FilmRecord("x"));
  EXPECT_TRUE(metadata.LoadFile("/volume1/video/film.mkv")) << "though there is no such file";
  EXPECT_EQ(metadata.GetDuration(), 100U);
}

class FilmMetadata : public test::StreamTest {};

TEST_F(FilmMetadata, IsProbedOncePerPath) {
  Write("/film.mkv", test::ReadWhole(test::Film("h264_ac3.mkv")));
  VideoMetaData metadata;
  ASSERT_TRUE(metadata.LoadFile(Path("/film.mkv")));
  EXPECT_EQ(metadata.GetDuration(), 60U);
  ASSERT_EQ(unlink(Path("/film.mkv").c_str()), 0);
  EXPECT_TRUE(metadata.LoadFile(Path("/film.mkv"))) << "known already";
  EXPECT_EQ(metadata.GetDuration(), 60U);
}

TEST_F(FilmMetadata, OfAnotherPathReplacesTheOldOne) {
  VideoMetaData metadata;
  ASSERT_TRUE(metadata.LoadFile(test::Film("h264_ac3.mkv")));
  ASSERT_TRUE(metadata.LoadFile(test::Film("mpeg4_mp3.avi")));
  EXPECT_EQ(metadata.GetVideoCodecName(), "mpeg4");
  EXPECT_FALSE(metadata.LoadFile(test::Film("text.mkv")));
  EXPECT_EQ(metadata.GetVideoCodecName(), "");
  EXPECT_EQ(metadata.GetFilePath(), "") << "nothing partial shows";
}

}  // namespace
