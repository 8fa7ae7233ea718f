// What opening an HLS stream leaves in its directory.
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>

#include "support/hls.h"
#include "support/log_capture.h"

namespace {

using namespace LibOrvoQMX;
using test::FilmRecord;
using test::kId;
using test::kRemuxProfile;
using test::kTranscodeProfile;
using List = std::vector<std::string>;

class HlsPlaylists : public test::HlsTest {
 protected:
  void TearDown() override {
    unsetenv("HTTP_USER_AGENT");
    HlsTest::TearDown();
  }

  static std::string Main() { return File(std::string(kId) + ".m3u8"); }

  // "duration:id" of each fragment of a fixed-length plan.
  std::string FixedPlan(const std::string& profile, int duration) const {
    MakeStream("HLS", FilmRecord(profile), "fixed");
    HLSHelper manifest(Path("/plan"), MANIFEST_TYPE_VIDEO, "u");
    HttpLiveStream("fixed").WriteManifestByFixedSegmentTime(manifest, duration);
    manifest.close();
    return Read("/plan");
  }

  static std::string Video(int target, const List& durations) {
    std::string text =
        "#EXTM3U\n#EXT-X-VERSION:3\n#EXT-X-TARGETDURATION:" + std::to_string(target) +
        "\n#EXT-X-MEDIA-SEQUENCE:0\n";
    for (size_t i = 0; i < durations.size(); ++i) {
      text += "#EXTINF:" + durations[i] + ",\nu&fragment_id=0000" + std::to_string(i) + "\n";
    }
    return text + "#EXT-X-ENDLIST\n";
  }

  bool Init(HttpLiveStream&& stream, const Json::Value& options = Json::objectValue,
            const std::string& audioFormat = "") const {
    return stream.Init(Request(), options, "", audioFormat);
  }
};

TEST_F(HlsPlaylists, CutAFilmIntoEqualPieces) {
  On("avoton", [this] {
    EXPECT_EQ(FixedPlan(kTranscodeProfile, 12), Video(5, {"5.000", "5.000", "2.000"}));
    EXPECT_EQ(FixedPlan(kTranscodeProfile, 10), Video(5, {"5.000", "5.000"}));
    EXPECT_EQ(FixedPlan(kRemuxProfile, 3), Video(8, {"3.000"}));
    EXPECT_EQ(FixedPlan(kRemuxProfile, 17), Video(8, {"8.000", "8.000", "1.000"}));
    EXPECT_EQ(FixedPlan(kTranscodeProfile, 0), Video(5, {"0.000"}));
  });
}

TEST_F(HlsPlaylists, NameFragmentsByTheirRequest) {
  On("avoton", [this] {
    Json::Value record = FilmRecord(kTranscodeProfile);
    record["duration"] = 7;
    Open(record);
    ASSERT_TRUE(Init(HttpLiveStream(kId)));
    EXPECT_EQ(Read(Main()),
              "#EXTM3U\n#EXT-X-VERSION:3\n#EXT-X-TARGETDURATION:5\n#EXT-X-MEDIA-SEQUENCE:0\n"
              "#EXTINF:5.000,\n" +
                  Address() +
                  "&fragment_id=%2200000%22\n"
                  "#EXTINF:2.000,\n" +
                  Address() + "&fragment_id=%2200001%22\n#EXT-X-ENDLIST\n");
    EXPECT_FALSE(Exists(File("video.m3u8")));
    EXPECT_FALSE(Exists(File("audio_format")));
    EXPECT_FALSE(Exists(File("appletv_status")));
  });
}

TEST_F(HlsPlaylists, NameFragmentsWithoutQuotesUnderTheOlderApi) {
  On("avoton", [this] {
    Open(kTranscodeProfile);
    Json::Value request = Request();
    request.removeMember("api");
    ASSERT_TRUE(HttpLiveStream(kId).GenPlaylist(request, MANIFEST_TYPE_VIDEO));
    EXPECT_NE(Read(Main()).find("&version=1&fragment_id=00019\n"), std::string::npos);
  });
}

TEST_F(HlsPlaylists, OfSubtitlesHaveTheFragmentsOfTheFixedPlan) {
  On("avoton", [this] {
    Json::Value record = FilmRecord(kTranscodeProfile);
    record["duration"] = 7;
    Open(record);
    const Json::Value options =
        test::ParseText(R"({"url": "s.cgi", "subtitle_id": "all", "uid": 1026, "id": "5"})");
    ASSERT_TRUE(Init(HttpLiveStream(kId), options));
    const std::string url =
        "s.cgi?id=5&subtitle_id=__ORVO_SUBTITLE_ID_PLACEHOLDER__&uid=1026"
        "&preview=false&output_webvtt=true";
    EXPECT_EQ(Read(File("subtitle.m3u8.tpl")),
              "#EXTM3U\n#EXT-X-VERSION:3\n#EXT-X-TARGETDURATION:5\n#EXT-X-MEDIA-SEQUENCE:0\n"
              "#EXT-X-PLAYLIST-TYPE:VOD\n#EXT-X-ALLOW-CACHE:YES\n"
              "#EXTINF:5.000,\n" +
                  url +
                  "&webvtt_start_time=0&webvtt_end_time=5\n"
                  "#EXTINF:2.000,\n" +
                  url + "&webvtt_start_time=5&webvtt_end_time=7\n#EXT-X-ENDLIST\n");
    EXPECT_NE(Read(File("video.m3u8")).find("&fragment_id=%2200001%22\n"), std::string::npos);
    EXPECT_NE(Read(Main()).find("&playlist_type=video\n"), std::string::npos);
  });
}

TEST_F(HlsPlaylists, FollowStoredKeyFrames) {
  On("avoton", [this] {
    Json::Value record = FilmRecord(kRemuxProfile);
    record["path"] = Path("/volume1/film.mkv");
    record["use_pre_analysis"] = true;
    StoreKeyframes(Path("/volume1/film.mkv"), {0, 3, 9, 20}, 26);
    Open(record);
    HttpLiveStream stream(kId);
    EXPECT_TRUE(stream.IsPreAnalysisAvailable());
    ASSERT_TRUE(stream.GenPlaylist(Request(), MANIFEST_TYPE_VIDEO));
    EXPECT_NE(Read(Main()).find("TARGETDURATION:11\n"), std::string::npos);
    EXPECT_EQ(stream.CalculateSeekTime(1), 9000);
    EXPECT_EQ(stream.CalculateSeekTime(2), 20000);
    EXPECT_EQ(stream.CalculateSeekTime(3), -1);
    EXPECT_EQ(stream.CalculateSeekTime(-1), -1);

    Write("/var/packages/Mirevo/etc/not_using_pre_analysis", "");
    EXPECT_FALSE(stream.IsPreAnalysisAvailable());
    EXPECT_EQ(stream.CalculateSeekTime(3), 24000);
    EXPECT_EQ(stream.CalculateSeekTime(-1), -1);
  });
}

TEST_F(HlsPlaylists, AndLaterRequestsUseTheSamePlan) {
  On("avoton", [this] {
    const std::string film = Path("/volume1/film.mkv");
    Json::Value record = FilmRecord(kRemuxProfile);
    record["path"] = film;
    record["use_pre_analysis"] = true;
    Open(record);
    ASSERT_TRUE(HttpLiveStream(kId).GenPlaylist(Request(), MANIFEST_TYPE_VIDEO));
    EXPECT_EQ(HttpLiveStream(kId).CalculateSeekTime(1), 8000);
    StoreKeyframes(film, {0, 3, 9, 20}, 26);
    EXPECT_FALSE(HttpLiveStream(kId).IsPreAnalysisAvailable()) << "it came after the playlist";
    EXPECT_EQ(HttpLiveStream(kId).CalculateSeekTime(1), 8000);

    ASSERT_TRUE(HttpLiveStream(kId).GenPlaylist(Request(), MANIFEST_TYPE_VIDEO));
    EXPECT_EQ(HttpLiveStream(kId).CalculateSeekTime(1), 9000) << "a playlist anew";
    StoreKeyframes(film, {0, 10, 20}, 26);
    EXPECT_EQ(HttpLiveStream(kId).CalculateSeekTime(1), 9000);
    std::filesystem::remove_all(Path("/volume1/@ea"));
    EXPECT_EQ(HttpLiveStream(kId).CalculateSeekTime(1), 9000);
  });
}

TEST_F(HlsPlaylists, FollowNoKeyFramesIfTheRecordOrTheProfileForbidsIt) {
  On("avoton", [this] {
    Json::Value record = FilmRecord(kRemuxProfile);
    record["path"] = Path("/volume1/film.mkv");
    StoreKeyframes(Path("/volume1/film.mkv"), {0, 3, 9, 20}, 26);
    MakeStream("HLS", record);
    EXPECT_FALSE(HttpLiveStream(kId).IsPreAnalysisAvailable());
    record["use_pre_analysis"] = true;
    MakeStream("HLS", record);
    EXPECT_TRUE(HttpLiveStream(kId).IsPreAnalysisAvailable());
    record["profile_value"] = kTranscodeProfile;
    MakeStream("HLS", record);
    EXPECT_FALSE(HttpLiveStream(kId).IsPreAnalysisAvailable());
  });
}

TEST_F(HlsPlaylists, AreNotWrittenWithoutAnAddressAStreamOrADuration) {
  On("avoton", [this] {
    Json::Value record = FilmRecord(kTranscodeProfile);
    MakeStream("HLS", record);
    EXPECT_FALSE(HttpLiveStream(kId).GenPlaylist(Json::objectValue, MANIFEST_TYPE_VIDEO));
    EXPECT_FALSE(HttpLiveStream("").GenPlaylist(Request(), MANIFEST_TYPE_VIDEO));
    EXPECT_FALSE(HttpLiveStream(kId).GenPlaylist(Request(), MANIFEST_TYPE_SUBTITLE));
    record["duration"] = 0;
    MakeStream("HLS", record);
    EXPECT_FALSE(HttpLiveStream(kId).GenPlaylist(Request(), MANIFEST_TYPE_VIDEO));
  });
}

TEST_F(HlsPlaylists, StoreTheRequestedAudioFormat) {
  On("avoton", [this] {
    Open(kTranscodeProfile);
    ASSERT_TRUE(Init(HttpLiveStream(kId), Json::objectValue, "ac3_copy"));
    EXPECT_EQ(Read(File("audio_format")), "ac3_copy");
  });
}

TEST_F(HlsPlaylists, MarkAnAppleTv) {
  On("avoton", [this] {
    Open(kTranscodeProfile);
    setenv("HTTP_USER_AGENT", "AppleCoreMedia (Apple TV; U; CPU OS 9_0)", 1);
    ASSERT_TRUE(Init(HttpLiveStream(kId)));
    EXPECT_FALSE(Exists(File("appletv_status")));
    setenv("HTTP_USER_AGENT", "AppleCoreMedia (Apple TV; U; CPU OS 10_0)", 1);
    ASSERT_TRUE(Init(HttpLiveStream(kId)));
    EXPECT_EQ(Read(File("appletv_status")), "Init");
  });
}

TEST_F(HlsPlaylists, RemoveTheDirectoryWhenTheyFail) {
  On("avoton", [this] {
    Json::Value record = FilmRecord(kTranscodeProfile);
    record["duration"] = 0;
    Open(record);
    EXPECT_FALSE(Init(HttpLiveStream(kId)));
    EXPECT_EQ(test::TakeLogTexts(),
              List{"http_live_stream:N Failed to generate video m3u8 playlist "
                   "for HLS [file path=/volume1/video/film.mkv]"});
    EXPECT_FALSE(Exists(Directory("HLS")));
    EXPECT_FALSE(Exists("/volume1/@tmp/Mirevo/HLS/" + std::string(kId)));
  });
}

TEST_F(HlsPlaylists, OfSubtitlesRemoveTheDirectoryWhenTheyFail) {
  On("avoton", [this] {
    Open(kTranscodeProfile);
    EXPECT_FALSE(Init(HttpLiveStream(kId), test::ParseText(R"({"subtitle_id": "x"})")));
    EXPECT_EQ(test::TakeLogTexts(),
              List{"http_live_stream:N Failed to generate subtitle m3u8 playlist for HLS [file "
                   "path=/volume1/video/film.mkv]"});
    EXPECT_FALSE(Exists(Directory("HLS")));
  });
}

TEST_F(HlsPlaylists, ThatCannotBeWrittenAreAFailure) {
  On("avoton", [this] {
    Open(kTranscodeProfile);
    MakeDirectory(Main());
    EXPECT_FALSE(Init(HttpLiveStream(kId),
                      test::ParseText(R"({"url": "u", "uid": 1, "subtitle_id": "x"})")));
    EXPECT_EQ(test::TakeLogTexts(),
              List{"http_live_stream:N Failed to generate index m3u8 video playlist for HLS [file "
                   "path=/volume1/video/film.mkv]"});
    Open(kTranscodeProfile);
    MakeDirectory(File("audio_format"));
    EXPECT_FALSE(Init(HttpLiveStream(kId), Json::objectValue, "aac"));
    EXPECT_EQ(test::TakeLogTexts(),
              List{"http_live_stream:N Failed to save audio format [aac] in [" +
                   Path(File("audio_format")) + "]"});
    Open(kTranscodeProfile);
    MakeDirectory(File("appletv_status"));
    setenv("HTTP_USER_AGENT", "Apple TV OS 10", 1);
    EXPECT_FALSE(Init(HttpLiveStream(kId)));
    EXPECT_EQ(test::TakeLogTexts(),
              List{"http_live_stream:N Failed to generate stat file for apple tv 10"});
  });
}

TEST_F(HlsPlaylists, LeaveTheDirectoryOfAStreamThatIsNotAdmitted) {
  On("avoton", [this] {
    Open(kTranscodeProfile);
    EXPECT_FALSE(HttpLiveStream(kId).Init(Json::objectValue, Json::objectValue, "", ""));
    EXPECT_TRUE(Exists(Directory("HLS")));
  });
}

}  // namespace
