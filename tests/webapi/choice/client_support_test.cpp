// Which films a client plays as they are.
#include "webapi/choice/client_support.h"

#include <gtest/gtest.h>

#include <string>

namespace {

using webapi::Client;
using webapi::DirectVerdict;
using webapi::JudgeDirect;

constexpr char kChrome[] =
    "Mozilla/5.0 (X11; Linux x86_64) AppleWebKit/537.36 (KHTML, like Gecko) Chrome/140.0.0.0 "
    "Safari/537.36";
constexpr char kFirefox[] =
    "Mozilla/5.0 (X11; Linux x86_64; rv:140.0) Gecko/20100101 Firefox/140.0";
constexpr char kSafari[] =
    "Mozilla/5.0 (Macintosh; Intel Mac OS X 10_15_7) AppleWebKit/605.1.15 (KHTML, like Gecko) "
    "Version/18.0 Safari/605.1.15";
constexpr char kChromeOnIPhone[] =
    "Mozilla/5.0 (iPhone; CPU iPhone OS 18_0 like Mac OS X) AppleWebKit/605.1.15 (KHTML, like "
    "Gecko) CriOS/140.0 Mobile/15E148 Safari/604.1";

// A film made of words.
class Film : public LibOrvoQMX::VideoMetaData {
 public:
  Film(const std::string& path, const std::string& container, const std::string& video,
       const std::string& audio) {
    m_loaded = true;
    m_document["path"] = path;
    m_document["container_type"] = container;
    Json::Value& tracks = m_document["track_info"];
    tracks["audio"] = Json::Value(Json::arrayValue);
    tracks["video"][0]["codec_raw"] = video;
    tracks["video"][0]["pix_fmt"] = "yuv420p";
    tracks["video"][0]["resolutionx"] = 1920U;
    tracks["video"][0]["resolutiony"] = 1080U;
    if (!audio.empty()) {
      AddAudio(audio, false);
    }
  }
  void AddAudio(const std::string& codec, bool isDefault) {
    Json::Value track(Json::objectValue);
    track["codec_raw"] = codec;
    track["is_default"] = isDefault;
    m_document["track_info"]["audio"].append(track);
  }
  void SetRange(const std::string& range) {
    m_document["track_info"]["video"][0]["dynamic_range"] = range;
  }
  // Turns the pictures into a cover.
  void BeMusic() { m_document["track_info"]["video"][0]["attached_pic"] = true; }
  void SetPixels(const std::string& format) {
    m_document["track_info"]["video"][0]["pix_fmt"] = format;
  }
};

const Film kMp4("/films/a.mp4", "mov,mp4,m4a,3gp,3g2,mj2", "h264", "aac");
const Film kWebM("/films/a.webm", "matroska,webm", "vp9", "opus");
const Film kMkv("/films/a.mkv", "matroska,webm", "h264", "aac");
const Film kMkvAc3("/films/a.mkv", "matroska,webm", "h264", "ac3");
const Film kHevc("/films/a.mp4", "mov,mp4,m4a,3gp,3g2,mj2", "hevc", "aac");
const Film kAvi("/films/a.avi", "avi", "mpeg4", "mp3");

struct Row {
  const char* client;
  const Film& film;
  bool fits;
};

TEST(DirectPlay, EachClientPlaysItsKnownFormats) {
  const Row rows[] = {
      {kChrome, kMp4, true},
      {kFirefox, kMp4, true},
      {kSafari, kMp4, true},
      {"curl/8.0", kMp4, true},
      {kChrome, kWebM, true},
      {kFirefox, kWebM, true},
      {kSafari, kWebM, false},
      {kChromeOnIPhone, kWebM, false},
      {"curl/8.0", kWebM, false},
      {kChrome, kMkv, true},
      {kFirefox, kMkv, false},
      {kSafari, kMkv, false},
      {kChrome, kMkvAc3, false},
      {kChrome, kHevc, false},
      {kFirefox, kHevc, false},
      {kChrome, kAvi, false},
      {"VLC/3.0.20 LibVLC/3.0.20", kAvi, true},
      {"Lavf/59.27.100", kHevc, true},
      {"mpv 0.35.1", kMkvAc3, true},
      {"", kMkv, false},
  };
  for (const Row& row : rows) {
    const DirectVerdict verdict = JudgeDirect(row.film, Client{row.client, "", {}});
    EXPECT_EQ(verdict.fits, row.fits)
        << row.client << " and " << row.film.GetFilePath() << ": " << verdict.why;
    EXPECT_EQ(verdict.why.back(), '.') << "a sentence";
  }
}

TEST(DirectPlay, AKnownDeviceHasPriorityOverTheUserAgent) {
  EXPECT_TRUE(JudgeDirect(kMkvAc3, Client{kFirefox, "vlc", {}}).fits);
  EXPECT_FALSE(JudgeDirect(kWebM, Client{kChrome, "appletv", {}}).fits);
  EXPECT_TRUE(JudgeDirect(kWebM, Client{kChrome, "toaster", {}}).fits)
      << "an unknown device says nothing";
}

TEST(DirectPlay, TheMediaTypeFollowsTheContainer) {
  EXPECT_EQ(JudgeDirect(kMp4, Client{"", "", {}}).contentType, "video/mp4");
  EXPECT_EQ(JudgeDirect(kWebM, Client{"", "", {}}).contentType, "video/webm");
  EXPECT_EQ(JudgeDirect(kMkv, Client{"", "", {}}).contentType, "video/x-matroska");
  EXPECT_EQ(JudgeDirect(kAvi, Client{"", "", {}}).contentType, "video/x-msvideo");
}

TEST(DirectPlay, TheDefaultSoundDecidesAndAFilmWithoutSoundFits) {
  Film film("/films/a.mp4", "mov,mp4", "h264", "");
  EXPECT_TRUE(JudgeDirect(film, Client{kChrome, "", {}}).fits);
  film.AddAudio("ac3", false);
  EXPECT_FALSE(JudgeDirect(film, Client{kChrome, "", {}}).fits);
  film.AddAudio("aac", true);
  EXPECT_TRUE(JudgeDirect(film, Client{kChrome, "", {}}).fits);
}

TEST(DirectPlay, BrowsersGetNoTenBitPictures) {
  Film film = kMp4;
  film.SetPixels("yuv420p10le");
  EXPECT_FALSE(JudgeDirect(film, Client{kChrome, "", {}}).fits);
  EXPECT_TRUE(JudgeDirect(film, Client{"mpv 0.35.1", "", {}}).fits);
}

TEST(DirectPlay, AClientThatNamesTheCodecAndShowsItsRangeGetsTheFilmAsItIs) {
  Film film = kHevc;
  film.SetPixels("yuv420p10le");
  film.SetRange("hdr10");
  EXPECT_TRUE(JudgeDirect(film, Client{kSafari, "", {"avc1", "hvc1", "mp4a"}, true}).fits);
  EXPECT_TRUE(JudgeDirect(film, Client{"curl/8.0", "", {"hvc1.2.4.L120.B0"}, true}).fits);
  EXPECT_FALSE(JudgeDirect(film, Client{kSafari, "", {}, true}).fits) << "no such codec";
  const DirectVerdict verdict = JudgeDirect(film, Client{kSafari, "", {"hvc1.2.4.L120.B0"}, false});
  EXPECT_FALSE(verdict.fits);
  EXPECT_NE(verdict.why.find("HDR10"), std::string::npos) << verdict.why;
}

TEST(DirectPlay, APlayerOfItsOwnMapsTheTonesItself) {
  Film film = kHevc;
  film.SetRange("hlg");
  EXPECT_TRUE(JudgeDirect(film, Client{"VLC/3.0.20", "", {}}).fits);
}

TEST(DirectPlay, TenBitsNeedAClientThatNamesThem) {
  Film film("/films/a.mp4", "mov,mp4", "av1", "aac");
  film.SetPixels("yuv420p10le");
  EXPECT_FALSE(JudgeDirect(film, Client{kChrome, "", {"av01.0.08M.08"}}).fits);
  EXPECT_TRUE(JudgeDirect(film, Client{kChrome, "", {"av01.0.08M.10"}}).fits);
}

TEST(DirectPlay, ACoverHasNoSayInWhatPlays) {
  Film film("/music/a.flac", "flac", "mjpeg", "flac");
  film.SetPixels("yuvj444p");
  film.BeMusic();
  const DirectVerdict verdict = JudgeDirect(film, Client{kChrome, "", {}});
  EXPECT_TRUE(verdict.fits) << verdict.why;
  EXPECT_EQ(verdict.contentType, "audio/flac");
  EXPECT_FALSE(JudgeDirect(film, Client{"curl/8.0", "", {}}).fits);
}

TEST(DirectPlay, WithoutPicturesAndSoundNothingFits) {
  EXPECT_FALSE(JudgeDirect(LibOrvoQMX::VideoMetaData(), Client{"VLC/3.0.20", "", {}}).fits);
}

}  // namespace
