#include "metadata/qmxmetadata.h"

#include <gtest/gtest.h>

#include <map>

#include "platform/plat.h"
#include "support/log_capture.h"
#include "support/streams.h"

namespace {

using LibOrvoQMX::QMXInitArgument;
using LibOrvoQMX::QMXMetaData;
using List = std::vector<std::string>;

class Record : public test::StreamTest {};

TEST_F(Record, ArgumentsOfAStreamHaveDefaultsExceptTheFourTexts) {
  const QMXInitArgument argument("/film", "HLS", "/profiles", "key");
  EXPECT_EQ(argument.filePath, "/film");
  EXPECT_EQ(argument.streamKind, "HLS");
  EXPECT_EQ(argument.profilePath, "/profiles");
  EXPECT_EQ(argument.profileKey, "key");
  EXPECT_TRUE(argument.args.isObject() && argument.args.empty());
  EXPECT_EQ(argument.device, "");
  EXPECT_EQ(argument.needSpace, 0U);
  EXPECT_FALSE(argument.usePreAnalysis);
}

TEST_F(Record, ReturnsItsTexts) {
  Json::Value document = test::FilmRecord("-vcodec h264", "vb1000_ab128");
  document["device"] = "chromecast";
  const QMXMetaData record = Load(document);
  EXPECT_EQ(record.GetDevice(), "chromecast");
  EXPECT_EQ(record.GetProfileKey(), "vb1000_ab128");
  EXPECT_EQ(record.GetProfileValue(), "-vcodec h264");
  EXPECT_EQ(record.GetFilePath(), "/volume1/video/film.mkv");
}

TEST_F(Record, WithoutContentHasNoHeaderAndUsesThePreAnalysis) {
  const QMXMetaData record(test::kId, "HLS");
  EXPECT_FALSE(record.IsHLSHeader());
  EXPECT_TRUE(record.IsUsePreAnalysis());
  EXPECT_EQ(record.GetDevice(), "");
  EXPECT_EQ(record.GetProfileKey(), "");
  EXPECT_EQ(record.GetProfileValue(), "");
}

TEST_F(Record, HasAHeaderOnlyWhenItSaysSo) {
  EXPECT_TRUE(Load(test::ParseText(R"({"hls_header":true})")).IsHLSHeader());
  EXPECT_FALSE(Load(test::ParseText(R"({"hls_header":false})")).IsHLSHeader());
  EXPECT_FALSE(Load(test::ParseText("{}")).IsHLSHeader());
}

TEST_F(Record, UsesThePreAnalysisUnlessItIsABooleanFalse) {
  EXPECT_FALSE(Load(test::ParseText(R"({"use_pre_analysis":false})")).IsUsePreAnalysis());
  for (const char* text : {R"({"use_pre_analysis":true})", R"({"use_pre_analysis":"false"})",
                           R"({"use_pre_analysis":0})", R"({"use_pre_analysis":null})", "{}"}) {
    EXPECT_TRUE(Load(test::ParseText(text)).IsUsePreAnalysis()) << text;
  }
}

TEST_F(Record, IsNotLoadedWithoutAnIdOrAKind) {
  MakeStream("HTTP", test::FilmRecord("x"));
  EXPECT_FALSE(QMXMetaData("", "HTTP").LoadMetaData());
  EXPECT_FALSE(QMXMetaData(test::kId, "").LoadMetaData());
  EXPECT_TRUE(QMXMetaData(test::kId, "HTTP").LoadMetaData());
}

TEST_F(Record, IsNotLoadedWhenItIsMissingOrDamaged) {
  QMXMetaData record(test::kId, "HTTP");
  EXPECT_FALSE(record.LoadMetaData());
  const List contents = {"",
                         "{",
                         "no json",
                         std::string(100000, '['),
                         std::string("\0", 1),
                         std::string(R"({"profile_value":"x",)")};
  for (const std::string& content : contents) {
    Write(Directory("HTTP") + "/video_metadata", content);
    EXPECT_FALSE(record.LoadMetaData()) << content.substr(0, 20);
    EXPECT_EQ(record.GetProfileValue(), "");
  }
}

TEST_F(Record, CutAtAnyLengthIsReadOrRefused) {
  const std::string whole = test::FilmRecord("-vcodec h264").toStyledString();
  for (size_t length = 0; length < whole.size(); ++length) {
    Write(Directory("HTTP") + "/video_metadata", whole.substr(0, length));
    QMXMetaData record(test::kId, "HTTP");
    EXPECT_NO_THROW({
      record.LoadMetaData();
      record.GetVideoRatio();
      record.GetVideo(0);
      record.GetProfileValue();
    }) << length;
  }
}

TEST_F(Record, TakesItsProfileFromTheProfileFile) {
  Write("/profiles", R"({"a": "-vcodec h264", "empty": "", "number": 5, "list": [1]})");
  const std::string path = Path("/profiles");
  Json::Value document(Json::objectValue);
  EXPECT_TRUE(QMXMetaData::ReadTransProfile(path, "a", document));
  EXPECT_EQ(document["profile_key"], "a");
  EXPECT_EQ(document["profile_value"], "-vcodec h264");
  EXPECT_TRUE(QMXMetaData::ReadTransProfile(path, "empty", document));
  EXPECT_EQ(document["profile_value"], "");
  EXPECT_TRUE(QMXMetaData::ReadTransProfile(path, "number", document));
  EXPECT_EQ(document["profile_value"], "5");
  EXPECT_NO_THROW(QMXMetaData::ReadTransProfile(path, "list", document));
}

TEST_F(Record, GetsNoProfileWithoutAFileOrAKey) {
  Write("/profiles", R"({"a": "x"})");
  const std::string path = Path("/profiles");
  Json::Value document(Json::objectValue);
  EXPECT_FALSE(QMXMetaData::ReadTransProfile("", "a", document));
  EXPECT_FALSE(QMXMetaData::ReadTransProfile(path, "", document));
  EXPECT_FALSE(QMXMetaData::ReadTransProfile(path, "b", document));
  EXPECT_FALSE(QMXMetaData::ReadTransProfile(Path("/missing"), "a", document));
  for (const char* content : {"[]", "5", "\"a\"", "null", "{"}) {
    Write("/profiles", content);
    EXPECT_FALSE(QMXMetaData::ReadTransProfile(path, "a", document)) << content;
  }
  EXPECT_TRUE(document.empty());
}

TEST_F(Record, IsNotWrittenForMissingArguments) {
  const QMXInitArgument whole("/film", "HTTP", "/profiles", "a");
  for (std::string QMXInitArgument::*member :
       {&QMXInitArgument::filePath, &QMXInitArgument::streamKind, &QMXInitArgument::profilePath,
        &QMXInitArgument::profileKey}) {
    QMXInitArgument argument = whole;
    (argument.*member).clear();
    EXPECT_FALSE(QMXMetaData::ParserMetaData(argument, test::kId, false));
  }
  EXPECT_FALSE(QMXMetaData::ParserMetaData(whole, "", false));
  EXPECT_TRUE(test::TakeLog().empty());
}

class FilmRecords : public test::StreamTest {};

TEST_F(FilmRecords, HoldTheProbeAndTheCallersArguments) {
  Write("/profiles", R"({"a": "-vcodec h264"})");
  MakeDirectory(Directory("HLS"));
  QMXInitArgument argument(test::Film("h264_aac.mp4"), "HLS", Path("/profiles"), "a");
  argument.device = "tv";
  argument.usePreAnalysis = true;
  ASSERT_TRUE(QMXMetaData::ParserMetaData(argument, test::kId, true));
  const Json::Value document = ReadJson(Directory("HLS") + "/video_metadata");
  EXPECT_EQ(document["path"], test::Film("h264_aac.mp4"));
  EXPECT_EQ(document["duration"], 60);
  EXPECT_EQ(document["track_info"]["video"][0]["codec"], "h264");
  EXPECT_EQ(document["profile_key"], "a");
  EXPECT_EQ(document["profile_value"], "-vcodec h264");
  EXPECT_EQ(document["device"], "tv");
  EXPECT_EQ(document["hls_header"], Json::Value(true));
  EXPECT_EQ(document["use_pre_analysis"], Json::Value(true));

  QMXMetaData record(test::kId, "HLS");
  ASSERT_TRUE(record.LoadMetaData());
  EXPECT_TRUE(record.IsHLSHeader());
  EXPECT_EQ(record.GetVideoCodecName(), "h264");
}

TEST_F(FilmRecords, CarryTheWishForTheSoundToTheTranscoder) {
  Write("/profiles", R"({"a": "-vcodec h264"})");
  MakeDirectory(Directory("HLS"));
  QMXInitArgument argument(test::Film("h264_aac.mp4"), "HLS", Path("/profiles"), "a");
  argument.args["sound"] = "night";
  ASSERT_TRUE(QMXMetaData::ParserMetaData(argument, test::kId, true));
  const Json::Value document = ReadJson(Directory("HLS") + "/video_metadata");
  EXPECT_EQ(document["profile_value"], "-vcodec h264 -sound night");
}

TEST_F(FilmRecords, TellTheTranscoderOfMusicButNotTheWrapperOfGStreamer) {
  ASSERT_EQ(PlatExecv("/usr/bin/ffmpeg", {"ffmpeg",
                                          "-nostdin",
                                          "-v",
                                          "fatal",
                                          "-f",
                                          "lavfi",
                                          "-i",
                                          "sine=d=1",
                                          "-f",
                                          "lavfi",
                                          "-i",
                                          "color=s=32x32:d=0.04",
                                          "-map",
                                          "0",
                                          "-map",
                                          "1",
                                          "-c:v",
                                          "mjpeg",
                                          "-disposition:v",
                                          "attached_pic",
                                          Path("/cover.flac")}),
            0);
  Write("/profiles", R"({"a": "-acodec aac", "b": "--acodec aac"})");
  MakeDirectory(Directory("HTTP"));
  for (const auto& [key, value] :
       std::map<std::string, std::string>{{"a", "-acodec aac -music 1"}, {"b", "--acodec aac"}}) {
    const QMXInitArgument argument(Path("/cover.flac"), "HTTP", Path("/profiles"), key);
    ASSERT_TRUE(QMXMetaData::ParserMetaData(argument, test::kId, true));
    EXPECT_EQ(ReadJson(Directory("HTTP") + "/video_metadata")["profile_value"], value);
  }
}

TEST_F(FilmRecords, AreNotWrittenWithoutAProfileOrAFilmOrADirectory) {
  Write("/profiles", R"({"a": "x"})");
  const QMXInitArgument noKey(test::Film("h264_aac.mp4"), "HLS", Path("/profiles"), "b");
  MakeDirectory(Directory("HLS"));
  EXPECT_FALSE(QMXMetaData::ParserMetaData(noKey, test::kId, false));
  EXPECT_EQ(test::TakeLogTexts(), List{"qmxmetadata:N Failed to copy transcoding profile [b] in [" +
                                       Path("/profiles") + "]"});
  const QMXInitArgument noFilm(test::Film("text.mkv"), "HLS", Path("/profiles"), "a");
  EXPECT_FALSE(QMXMetaData::ParserMetaData(noFilm, test::kId, false));
  EXPECT_FALSE(Exists(Directory("HLS") + "/video_metadata"));
  const QMXInitArgument good(test::Film("h264_aac.mp4"), "HLS", Path("/profiles"), "a");
  EXPECT_FALSE(QMXMetaData::ParserMetaData(good, "other", false)) << "no directory";
}

}  // namespace
