#include <gtest/gtest.h>

#include "support/hls.h"
#include "support/log_capture.h"
#include "util/subtitle.h"

namespace {

using LibOrvoQMX::HttpLiveStream;
using test::FilmRecord;
using test::kId;
using List = std::vector<std::string>;
using Entries = HttpLiveStream::SubtitleList;

class HlsSubtitles : public test::HlsTest {
 protected:
  void SetUp() override {
    HlsTest::SetUp();
    record_ = FilmRecord(test::kTranscodeProfile);
    record_["path"] = Film();
    Write("/volume1/video/movie.mkv", "");
  }
  std::string Film() const { return Path("/volume1/video/movie.mkv"); }
  std::string Beside(const std::string& name) const { return Path("/volume1/video/" + name); }
  void AddFiles(const List& names) const {
    for (const std::string& name : names) {
      Write("/volume1/video/" + name, "");
    }
  }
  void AddTrack(const char* number, const char* codec, const char* language) {
    Json::Value track;
    track["codec"] = codec;
    track["track"] = number;
    track["language"] = language;
    record_["track_info"]["subtitle"].append(track);
  }
  HttpLiveStream Stream() const {
    MakeStream("HLS", record_);
    return HttpLiveStream(kId);
  }

  static std::string Rendition(const std::string& name, const char* isDefault,
                               const std::string& id) {
    return "#EXT-X-MEDIA:TYPE=SUBTITLES,GROUP-ID=\"subs\",LANGUAGE=\"" + name + "\",NAME=\"" +
           name + "\",DEFAULT=" + isDefault + ",FORCED=NO,URI=\"" + Address() + "&subtitle_id=%22" +
           id + "%22&playlist_type=subtitle\"\n";
  }
  std::string Index(const std::string& subtitleId) const {
    Json::Value options;
    options["subtitle_id"] = subtitleId;
    EXPECT_TRUE(Stream().GenIndexPlaylist(Request(), options));
    return Read(File(std::string(kId) + ".m3u8"));
  }

  Json::Value record_;
};

constexpr char kVariant[] = "\n#EXT-X-STREAM-INF:BANDWIDTH=300000,CODECS=\"mp4a.40.2,avc1.42001e\"";

TEST_F(HlsSubtitles, OfOneTrackMakeAnIndexWithOneRendition) {
  On("avoton", [this] {
    EXPECT_EQ(Index("/volume1/video/a b.srt"),
              "#EXTM3U\n\n" + Rendition("Undefined", "YES", "%2Fvolume1%2Fvideo%2Fa%20b.srt") +
                  kVariant + ",SUBTITLES=\"subs\"\n" + Address() +
                  "&playlist_type=video\n#EXT-X-ENDLIST");
  });
}

TEST_F(HlsSubtitles, ThatAreMissingMakeAnIndexOfOnlyTheVideo) {
  On("avoton", [this] {
    EXPECT_EQ(Index("all"), std::string("#EXTM3U\n\n") + kVariant + "\n" + Address() +
                                "&playlist_type=video\n#EXT-X-ENDLIST");
  });
}

TEST_F(HlsSubtitles, OfOneLanguageGetDifferentNames) {
  On("avoton", [this] {
    AddFiles({"movie.eng.srt", "movie.eng.ass", "movie.shooter-1.srt"});
    AddTrack("3", "subrip", "eng");
    const std::string index = Index("all");
    const size_t first = index.find("LANGUAGE=\"eng\",NAME=\"eng\",DEFAULT=YES");
    const size_t second = index.find("LANGUAGE=\"eng-2\",NAME=\"eng-2\",DEFAULT=NO");
    const size_t third = index.find("LANGUAGE=\"eng-3\",NAME=\"eng-3\",DEFAULT=NO");
    EXPECT_LT(first, second);
    EXPECT_LT(second, third);
    EXPECT_NE(third, std::string::npos) << index;
    EXPECT_NE(index.find("&subtitle_id=%223%22&playlist_type"), std::string::npos);
  });
}

TEST_F(HlsSubtitles, UnderTheOlderApiAreNotQuoted) {
  On("avoton", [this] {
    Json::Value request = Request();
    request.removeMember("api");
    Json::Value options;
    options["subtitle_id"] = "abc-1_2.~x";
    ASSERT_TRUE(Stream().GenIndexPlaylist(request, options));
    EXPECT_NE(Read(File(std::string(kId) + ".m3u8")).find("&subtitle_id=abc-1_2.~x&playlist_type"),
              std::string::npos);
  });
}

TEST_F(HlsSubtitles, BesideTheFilmAreFoundWhateverTheirCase) {
  On("avoton", [this] {
    AddFiles({"movie.ENG.SRT", "movie.shooter-10.sMi", "movie.en.ssa", "movie.ass", "other.srt",
              "movie2.srt", "movie.txt", "movie.eng.srt.bak"});
    EXPECT_EQ(Stream().GetExternalSubtitle(),
              (Entries{{Beside("movie.ENG.SRT"), "ENG"},
                       {Beside("movie.en.ssa"), "External"},
                       {Beside("movie.ass"), "External"},
                       {Beside("movie.shooter-10.sMi"), "External"}}));
  });
}

TEST_F(HlsSubtitles, InTheFilmAreTextOnly) {
  On("avoton", [this] {
    AddTrack("3", "subrip", "ger");
    AddTrack("4", "hdmv_pgs_subtitle", "eng");
    AddTrack("5", "ass", "en");
    AddTrack("6", "mov_text", "shooter-9");
    EXPECT_EQ(Stream().GetInternalSubtitle(),
              (Entries{{"3", "ger"}, {"5", "Internal"}, {"6", "shooter-9"}}));
    record_["container_type"] = "mov,mp4,m4a,3gp,3g2,mj2";
    EXPECT_EQ(Stream().GetInternalSubtitle().size(), 3U);
    record_["container_type"] = "mpegts";
    EXPECT_EQ(Stream().GetInternalSubtitle(), Entries());
  });
}

TEST_F(HlsSubtitles, AreSelectedByAnIdOrByAll) {
  On("avoton", [this] {
    AddFiles({"movie.eng.srt"});
    AddTrack("3", "ssa", "fre");
    EXPECT_EQ(Stream().GetSubtitleMap(""), Entries());
    EXPECT_EQ(Stream().GetSubtitleMap("3"), (Entries{{"3", "Undefined"}}));
    EXPECT_EQ(Stream().GetSubtitleMap("all"),
              (Entries{{Beside("movie.eng.srt"), "eng"}, {"3", "fre"}}));
  });
}

TEST_F(HlsSubtitles, LanguagesAreCodesOrShooterTags) {
  On("avoton", [this] {
    const struct {
      const char* language;
      const char* expected;
    } rows[] = {{"eng", "eng"},
                {"ENG", "ENG"},
                {"en", "Internal"},
                {"engl", "Internal"},
                {"e1g", "Internal"},
                {"\xC3\xA9g", "Internal"},
                {"shooter-1", "shooter-1"},
                {"shooter-10", "Internal"},
                {"shooter-x", "Internal"},
                {"shooter-", "Internal"},
                {"", "Internal"}};
    for (const auto& row : rows) {
      record_["track_info"]["subtitle"] = Json::Value(Json::arrayValue);
      AddTrack("3", "subrip", row.language);
      EXPECT_EQ(Stream().GetInternalSubtitle(), (Entries{{"3", row.expected}})) << row.language;
    }
    record_["track_info"]["subtitle"][0]["language"] = 5;
    EXPECT_EQ(Stream().GetInternalSubtitle(), (Entries{{"3", "Internal"}}));
  });
}

TEST_F(HlsSubtitles, AreAddressedByTheOptions) {
  On("avoton", [this] {
    Json::Value options = test::ParseText(R"({"url": "s.cgi", "id": 7, "subtitle_id": "x",
      "uid": 4294967295, "subtitle_codepage": "utf-8", "api": "ORVO.Mirevo2.Subtitle",
      "version": 2, "method": "get", "_sid": "s", "OrvoToken": "o"})");
    const HttpLiveStream stream = Stream();
    EXPECT_EQ(stream.GetSubtitleURL(options),
              "s.cgi?id=7&subtitle_id=%22__ORVO_SUBTITLE_ID_PLACEHOLDER__%22&uid=4294967295"
              "&subtitle_codepage=utf-8&api=ORVO.Mirevo2.Subtitle&version=2&method=get&_sid=s"
              "&OrvoToken=o");
    EXPECT_EQ(stream.GetSubtitleURL(test::ParseText(
                  R"({"url": "s?", "subtitle_id": "x", "uid": 1, "subtitle_codepage": ""})")),
              "s?&subtitle_id=__ORVO_SUBTITLE_ID_PLACEHOLDER__&uid=1");
    EXPECT_EQ(stream.GetSubtitleURL(test::ParseText(
                  R"({"url": "s", "id": 7.0, "subtitle_id": 1, "uid": 1.0, "version": 1.5})")),
              "s?id=7&subtitle_id=__ORVO_SUBTITLE_ID_PLACEHOLDER__&uid=1&version=1.5");
    for (const char* member : {"url", "subtitle_id", "uid"}) {
      Json::Value less = options;
      less.removeMember(member);
      EXPECT_EQ(stream.GetSubtitleURL(less), "") << member;
    }
    EXPECT_EQ(stream.GetSubtitleURL(Json::nullValue), "");
  });
}

TEST_F(HlsSubtitles, OfATrackGetTheirPlaylistFromTheTemplate) {
  On("avoton", [this] {
    const HttpLiveStream stream = Stream();
    Write(File("subtitle.m3u8.tpl"),
          "#EXTM3U\nu&subtitle_id=__ORVO_SUBTITLE_ID_PLACEHOLDER__&x\n"
          "__ORVO_SUBTITLE_ID_PLACEHOLDER__ __ORVO_SUBTITLE_ID_PLACEHOLDER__\n");
    EXPECT_EQ(stream.GetSubtitleManifestPath("/v/a b.srt"), Path(File("a b.srt.subtitle.m3u8")));
    EXPECT_EQ(Read(File("a b.srt.subtitle.m3u8")),
              "#EXTM3U\nu&subtitle_id=%2Fv%2Fa%20b.srt&x\n"
              "%2Fv%2Fa%20b.srt __ORVO_SUBTITLE_ID_PLACEHOLDER__\n");
    EXPECT_EQ(stream.GetSubtitleManifestPath("3"), Path(File("3.subtitle.m3u8")));
    EXPECT_EQ(stream.GetSubtitleManifestPath(""), "");
    EXPECT_EQ(stream.GetSubtitleManifestPath("/v/"), "");
    EXPECT_EQ(test::TakeLogTexts(), List());
  });
}

TEST_F(HlsSubtitles, WithoutATemplateOrAPlaceHaveNoPlaylist) {
  On("avoton", [this] {
    const HttpLiveStream stream = Stream();
    EXPECT_EQ(stream.GetSubtitleManifestPath("3"), "");
    EXPECT_EQ(test::TakeLogTexts(),
              List{"http_live_stream:N failed to open file " + Path(File("subtitle.m3u8.tpl"))});
    Write(File("subtitle.m3u8.tpl"), "x\n");
    MakeDirectory(File("3.subtitle.m3u8"));
    EXPECT_EQ(stream.GetSubtitleManifestPath("3"), "");
    EXPECT_EQ(test::TakeLogTexts(), List{"http_live_stream:N failed to open output file " +
                                         Path(File("3.subtitle.m3u8"))});
  });
}

TEST_F(HlsSubtitles, AndVideoHavePlaylistsOfTheirOwn) {
  On("avoton", [this] {
    HttpLiveStream stream = Stream();
    Write(File("subtitle.m3u8.tpl"), "x\n");
    EXPECT_EQ(stream.GetMainfest("video", "3"), Path(File("video.m3u8")));
    EXPECT_EQ(stream.GetMainfest("subtitle", "3"), Path(File("3.subtitle.m3u8")));
    for (const char* type : {"", "index", "Video"}) {
      EXPECT_EQ(stream.GetMainfest(type, ""), Path(File(std::string(kId) + ".m3u8")));
    }
    EXPECT_EQ(HttpLiveStream("").GetMainfest("video", ""), "");
  });
}

TEST(SubtitlePath, IsSplitIntoItsParts) {
  const Json::Value info = libmrv::subtitle::PathInfo("/a.b/movie.eng.srt");
  EXPECT_EQ(info, test::ParseText(R"({"dirname": "/a.b", "basename": "movie.eng.srt",
      "extension": "srt", "filename": "movie.eng", "language": "eng"})"));
  EXPECT_EQ(libmrv::subtitle::PathInfo("/a.b/movie"),
            test::ParseText(R"({"dirname": "/a.b", "basename": "movie", "extension": "",
      "filename": "movie", "language": ""})"));
  EXPECT_EQ(libmrv::subtitle::PathInfo("movie.srt")["language"], "");
}

}  // namespace
