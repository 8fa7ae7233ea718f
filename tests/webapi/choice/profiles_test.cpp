// What a profile would do to a film.
#include "webapi/choice/profiles.h"

#include <gtest/gtest.h>

#include <string>

namespace {

using webapi::Judge;
using webapi::Profile;
using webapi::Verdict;

const Profile kHlsRemux{"hls_remux", "-vcodec copy -bsf:v h264_mp4toannexb -acodec aac"};
const Profile kTsRemux{"http_ts_remux",
                       "-vcodec copy -bsf:v h264_mp4toannexb -acodec aac -f mpegts"};
const Profile kMp4Remux{"http_mp4_remux",
                        "-vcodec copy -bsf:v h264_mp4toannexb -acodec aac -f mp4"};
const Profile kHlsTranscode{"hls_480p", "-vcodec libx264 -s hd480 -acodec aac"};

// A film of H.264 and AAC whose picture is to be turned by so many degrees.
class Turned : public LibOrvoQMX::VideoMetaData {
 public:
  explicit Turned(int degrees) {
    m_loaded = true;
    Json::Value& tracks = m_document["track_info"];
    tracks["audio"][0]["codec_raw"] = "aac";
    Json::Value& video = tracks["video"][0];
    video["codec"] = video["codec_raw"] = "h264";
    video["pix_fmt"] = "yuv420p";
    video["resolutionx"] = 1920U;
    video["resolutiony"] = 1080U;
    video["rotate"] = degrees;
  }
};

TEST(Profiles, CopyATurnedPictureOnlyWhereTheContainerTellsIt) {
  for (const int degrees : {90, 180, 270}) {
    const Turned film(degrees);
    EXPECT_EQ(Judge(kMp4Remux, film).method, "remux");
    EXPECT_EQ(Judge(kHlsTranscode, film).method, "transcode");
    for (const Profile& profile : {kHlsRemux, kTsRemux}) {
      const Verdict verdict = Judge(profile, film);
      EXPECT_EQ(verdict.method, "refused") << profile.key;
      EXPECT_EQ(verdict.refusal, "TransVideoNotSupported");
      EXPECT_NE(verdict.why.find(std::to_string(degrees) + " degrees"), std::string::npos)
          << verdict.why;
    }
  }
}

// Music, with a cover unless `width` is 0.
class Music : public LibOrvoQMX::VideoMetaData {
 public:
  explicit Music(unsigned width) {
    m_loaded = true;
    Json::Value& tracks = m_document["track_info"];
    tracks["audio"][0]["codec_raw"] = "flac";
    Json::Value& video = tracks["video"] = Json::Value(Json::arrayValue);
    if (width > 0) {
      video[0]["codec"] = video[0]["codec_raw"] = "mjpeg";
      video[0]["attached_pic"] = true;
      video[0]["resolutionx"] = video[0]["resolutiony"] = width;
    }
  }
};

TEST(Profiles, MakeByteStreamsOfMusicWithACover) {
  const Profile mp4{"http_mp4_480p", "-vcodec libx264 -s hd480 -acodec aac -f mp4"};
  const Profile webm{"webm_480p", "-vcodec libvpx -s hd480 -acodec libmp3lame -f matroska"};
  for (const Profile& profile : {mp4, webm}) {
    EXPECT_EQ(Judge(profile, Music(500)).method, "transcode") << profile.key;
    EXPECT_EQ(Judge(profile, Music(0)).method, "refused") << profile.key;
  }
  const Profile smooth{"smoothstreaming_240p", "-vcodec libx264 -s 240 -acodec aac"};
  for (const Profile& profile : {kHlsTranscode, kMp4Remux, smooth}) {
    const Verdict verdict = Judge(profile, Music(500));
    EXPECT_EQ(verdict.refusal, "TransVideoNotSupported") << profile.key;
    EXPECT_NE(verdict.why.find("music"), std::string::npos) << verdict.why;
  }
}

TEST(Profiles, CopyAnUprightPictureAnywhere) {
  for (const int degrees : {0, 360}) {
    for (const Profile& profile : {kHlsRemux, kTsRemux, kMp4Remux}) {
      EXPECT_EQ(Judge(profile, Turned(degrees)).method, "remux") << profile.key << degrees;
    }
  }
}

}  // namespace
