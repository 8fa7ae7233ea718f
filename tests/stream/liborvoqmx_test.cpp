#include "stream/liborvoqmx.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>
#include <regex>

#include "platform/plat.h"
#include "support/log_capture.h"
#include "support/processes.h"
#include "support/streams.h"
#include "util/md5.h"

namespace {

using namespace LibOrvoQMX;
using test::Child;
using test::FilmRecord;
using test::JsonArray;
using test::PlainStream;
using test::RegistryEntry;
using List = std::vector<std::string>;

constexpr char kNoSpace[] = "TransSapceNotEnough";

class Stream : public test::StreamTest {
 protected:
  std::string LinkTarget(const std::string& path) const {
    std::error_code failure;
    return std::filesystem::read_symlink(Path(path), failure);
  }
};

TEST_F(Stream, DerivesItsFlagsFromTheProfileAndThePlatform) {
  const char* const remux = "-bsf:v h264_mp4toannexb";
  const char* const vaapi = "-vcodec h264_vaapi";
  const char* const smd = "-vcodec h264_smd";
  const char* const gst = "--vcodec h264 --acodec aac";
  const struct {
    const char* platform;
    const char* profile;
    bool remux, hardware, gstreamer, vaapi;
  } rows[] = {
      {"avoton", "-vcodec libx264", false, false, false, false},
      {"avoton", remux, true, false, false, false},
      {"avoton", vaapi, false, false, false, true},
      {"avoton", smd, false, false, false, false},
      {"avoton", gst, false, false, false, false},
      {"evansport", smd, false, true, false, false},
      {"evansport", gst, false, false, false, false},
      {"evansport", vaapi, false, false, false, true},
      {"braswell", gst, false, true, true, false},
      {"braswell", vaapi, false, true, false, true},
      {"braswell", smd, false, false, false, false},
      {"apollolake", vaapi, false, true, false, true},
      {"monaco", gst, false, true, true, false},
      {"monaco", remux, true, false, false, false},
  };
  for (const auto& row : rows) {
    On(row.platform, [this, &row] {
      MakeStream("HLS", FilmRecord(row.profile));
      const PlainStream stream("HLS");
      EXPECT_EQ(stream.IsRemuxStream(), row.remux) << row.profile;
      EXPECT_EQ(stream.IsHardware(), row.hardware) << row.profile;
      EXPECT_EQ(stream.IsGstreamer(), row.gstreamer) << row.profile;
      EXPECT_EQ(stream.IsVaapi(), row.vaapi) << row.profile;
      EXPECT_EQ(stream.Profile(), row.profile);
      EXPECT_EQ(stream.GetErrorString(), "");
    });
  }
}

TEST_F(Stream, ThatFoundNoRoomLoadsNothing) {
  MakeStream("HLS", FilmRecord("x"), kNoSpace);
  PlainStream stream("HLS", kNoSpace);
  EXPECT_EQ(stream.Profile(), "");
  EXPECT_TRUE(stream.GetFirstVideoInfo().isNull());
  EXPECT_FALSE(stream.InitStreamCommon("", false));
  EXPECT_EQ(stream.GetErrorString(), kNoSpace);
}

TEST_F(Stream, KeepsItsErrorWordUntilTheNextOne) {
  PlainStream stream("HLS");
  EXPECT_TRUE(stream.SetError("first"));
  EXPECT_FALSE(stream.SetError(""));
  EXPECT_EQ(stream.GetErrorString(), "first");
  EXPECT_TRUE(stream.SetError("second"));
  EXPECT_EQ(stream.GetErrorString(), "second");
}

TEST_F(Stream, KnowsThePathsOfItsFiles) {
  const PlainStream stream("HLS");
  EXPECT_EQ(stream.GetStreamID(), test::kId);
  EXPECT_EQ(stream.GetQMXFileFullPath(""), Path(Directory("HLS")));
  EXPECT_EQ(stream.GetQMXFileFullPath("audio_id"), Path(Directory("HLS") + "/audio_id"));
  EXPECT_EQ(PlainStream("").GetQMXFileFullPath("x"), "");
  EXPECT_EQ(PlainStream("").GetQMXFileFullPath(""), "");
  EXPECT_EQ(PlainStream("HLS", "").GetQMXFileFullPath("x"), "");
}

TEST_F(Stream, AnswersFromItsRecord) {
  On("avoton", [this] {
    Json::Value record = FilmRecord("x");
    record["track_info"]["video"][0]["rotate"] = 90;
    MakeStream("HLS", record);
    const PlainStream stream("HLS");
    EXPECT_EQ(stream.GetMetaVideoRotate(), 90U);
    EXPECT_EQ(stream.GetFirstVideoInfo()["codec"], "h264");
    EXPECT_EQ(stream.GetRequestAudioID(), "");
    EXPECT_TRUE(stream.IsSourceAudioCodec("ac3")) << "the first track";
    Write(Directory("HLS") + "/audio_id", "2");
    EXPECT_EQ(stream.GetRequestAudioID(), "2");
    EXPECT_TRUE(stream.IsSourceAudioCodec("aac"));
    EXPECT_FALSE(stream.IsSourceAudioCodec("ac3"));
  });
}

TEST_F(Stream, IdsAreTheDigestOfThePathAndEightRandomCharacters) {
  const std::string id = QMXStream::GetRandStreamID("/volume1/film.mkv");
  EXPECT_TRUE(std::regex_match(id, std::regex("[0-9a-f]{32}_[A-Za-z0-9]{8}"))) << id;
  EXPECT_EQ(id.substr(0, 32), LibMirevo::GetMD5("/volume1/film.mkv"));
  EXPECT_NE(QMXStream::GetRandStreamID("/volume1/film.mkv"), id);
}

TEST_F(Stream, RemuxIsInTheProfileFile) {
  On("avoton", [this] {
    Write("/profiles", R"({"copy": "-bsf:v h264_mp4toannexb -f x", "code": "-vcodec libx264"})");
    EXPECT_TRUE(QMXStream::IsRemux(Path("/profiles"), "copy"));
    EXPECT_FALSE(QMXStream::IsRemux(Path("/profiles"), "code"));
    EXPECT_FALSE(QMXStream::IsRemux(Path("/profiles"), "none"));
    EXPECT_FALSE(QMXStream::IsRemux(Path("/missing"), "copy"));
    EXPECT_FALSE(QMXStream::IsRemux("", "copy"));
    EXPECT_FALSE(QMXStream::IsRemux(Path("/profiles"), ""));
  });
}

TEST_F(Stream, DirectoryOfAByteStreamIsNotALink) {
  Write("/etc/orvo/volumes", "");
  EXPECT_TRUE(QMXStream::CreateTmpDir("id", "HTTP", "profile", "key", UINT64_MAX))
      << "it asks for no room";
  EXPECT_TRUE(std::filesystem::is_directory(Path("/tmp/Mirevo/HTTP/id")));
  EXPECT_EQ(LinkTarget("/tmp/Mirevo/HTTP/id"), "");
}

TEST_F(Stream, DirectoryOfOtherStreamsIsALinkToAVolume) {
  for (const std::string kind : {"WEBM", "HLS", "SS"}) {
    EXPECT_TRUE(QMXStream::CreateTmpDir("id", kind, "profile", "key", 0)) << kind;
    const std::string target = Path("/volume1/@tmp/Mirevo/" + kind + "/id");
    EXPECT_EQ(LinkTarget("/tmp/Mirevo/" + kind + "/id"), target);
    EXPECT_TRUE(std::filesystem::is_directory(target));
    EXPECT_TRUE(QMXStream::CreateTmpDir("id", kind, "profile", "key", 0)) << "once more";
  }
}

TEST_F(Stream, DirectoriesAreOpenToEveryone) {
  const mode_t previous = umask(0);
  EXPECT_TRUE(QMXStream::CreateTmpDir("id", "HTTP", "profile", "key", 0));
  EXPECT_TRUE(QMXStream::CreateTmpDir("id", "HLS", "profile", "key", 0));
  umask(previous);
  for (const char* path : {"/tmp/Mirevo/HTTP", "/tmp/Mirevo/HTTP/id", "/tmp/Mirevo/HLS",
                           "/volume1/@tmp/Mirevo/HLS/id"}) {
    struct stat status {};
    ASSERT_EQ(stat(Path(path).c_str(), &status), 0) << path;
    EXPECT_EQ(status.st_mode & 07777, mode_t{0777}) << path;
  }
}

TEST_F(Stream, DirectoryNeedsAllFourTexts) {
  EXPECT_FALSE(QMXStream::CreateTmpDir("", "HTTP", "profile", "key", 0));
  EXPECT_FALSE(QMXStream::CreateTmpDir("id", "", "profile", "key", 0));
  EXPECT_FALSE(QMXStream::CreateTmpDir("id", "HTTP", "", "key", 0));
  EXPECT_FALSE(QMXStream::CreateTmpDir("id", "HTTP", "profile", "", 0));
  EXPECT_FALSE(Exists("/tmp/Mirevo"));
}

TEST_F(Stream, SpaceThatItNeedsDependsOnItsKind) {
  On("avoton", [this] {
    Write("/etc/orvo/volumes", "");  // so that every wish is refused and told
    Write("/profiles", R"({"copy": "-bsf:v h264_mp4toannexb", "code": "-vcodec libx264"})");
    const struct {
      const char* kind;
      const char* key;
      uint64_t space;
      const char* needed;
    } rows[] = {
        {"HLS", "copy", 0, "2147483648"}, {"HLS", "copy", 5000000000, "5000000000"},
        {"HLS", "copy", 1, "1"},          {"HLS", "code", 4294967296, "536870912"},
        {"HLS", "code", 0, "536870912"},  {"HLS", "none", 7, "536870912"},
        {"WEBM", "copy", 7, "536870912"}, {"SS", "copy", 0, "536870912"},
    };
    for (const auto& row : rows) {
      EXPECT_FALSE(QMXStream::CreateTmpDir("id", row.kind, Path("/profiles"), row.key, row.space));
      EXPECT_EQ(test::TakeLogTexts(),
                List{std::string("liborvoqmx:N There are not enough volume space for streaming ") +
                     row.kind + ". Need space [" + row.needed + " bytes]"});
    }
  });
}

TEST_F(Stream, MissingSpaceIsReportedByAnErrorCode) {
  std::string directory = "old";
  EXPECT_TRUE(GetTmpDir(1, "HLS", "id", directory));
  EXPECT_EQ(directory, Path("/volume1/@tmp/Mirevo/HLS/id"));

  EXPECT_FALSE(GetTmpDir(UINT64_MAX, "HLS", "id", directory));
  EXPECT_EQ(PlatErrGet(), 0xDD00);
  EXPECT_EQ(directory, "");
  Write("/etc/orvo/volumes", "");
  EXPECT_FALSE(GetTmpDir(1, "HLS", "id", directory));
  EXPECT_EQ(PlatErrGet(), 0x8300);
  EXPECT_TRUE(test::TakeLog().empty());

  EXPECT_FALSE(GetTmpDir(1, "", "id", directory));
  EXPECT_FALSE(GetTmpDir(1, "HLS", "", directory));
  EXPECT_EQ(test::TakeLogTexts(), List(2, "liborvoqmx:N Bad parameter"));
  if (geteuid() == 0) {
    test::InChild([this] {
      unlink(Path("/etc/orvo/volumes").c_str());
      ASSERT_EQ(chmod(Path("/volume1").c_str(), 0755), 0);
      ASSERT_EQ(setresuid(65534, 65534, 65534), 0);
      std::string none;
      EXPECT_FALSE(GetTmpDir(1, "HLS", "id", none));
      EXPECT_EQ(PlatErrGet(), 0x2900);
    });
  }
}

TEST_F(Stream, VolumesThatCannotBeListedAreLogged) {
  PlatErrSet(0x1234);
  setenv("ORVO_SYSROOT", "/nowhere/at/all", 1);
  std::string directory;
  EXPECT_FALSE(GetTmpDir(1, "HLS", "id", directory));
  EXPECT_EQ(test::TakeLogTexts(), List{"liborvoqmx:N VolumeAvailGet() failed!! orvoerr=[0x1234]"});
  PlatErrSet(0);
}

TEST_F(Stream, OpeningNeedsItsArgumentsAndItsRoom) {
  EXPECT_EQ(QMXStream::QMX_Init(QMXInitArgument("", "HTTP", "profiles", "key")), "");
  EXPECT_EQ(QMXStream::QMX_Init(QMXInitArgument("film", "", "profiles", "key")), "");
  EXPECT_EQ(QMXStream::QMX_Init(QMXInitArgument("film", "HTTP", "", "key")), "");
  EXPECT_EQ(QMXStream::QMX_Init(QMXInitArgument("film", "HTTP", "profiles", "")), "");
  EXPECT_FALSE(Exists("/tmp/Mirevo"));
  Write("/etc/orvo/volumes", "");
  EXPECT_EQ(QMXStream::QMX_Init(QMXInitArgument("film", "HLS", "profiles", "key")), kNoSpace);
}

TEST_F(Stream, OpeningAFileThatIsNotAFilmFailsAndLeavesTheDirectory) {
  QMXInitArgument argument(Path("/missing.mkv"), "HTTP", Path("/profiles"), "key");
  argument.args["stream_id"] = "joined";
  EXPECT_EQ(QMXStream::QMX_Init(argument), "");
  EXPECT_EQ(test::TakeLogTexts(),
            List{"liborvoqmx:N QMXMetaData.ParserMetaData(joined, HTTP) failed"});
  EXPECT_TRUE(Exists("/tmp/Mirevo/HTTP/joined"));
}

TEST_F(Stream, AnIdThatLeadsElsewhereOpensNothing) {
  QMXInitArgument argument(Path("/missing.mkv"), "HTTP", Path("/profiles"), "key");
  for (const char* id : {"../escape", "a/b", "..", "."}) {
    argument.args["stream_id"] = id;
    EXPECT_EQ(QMXStream::QMX_Init(argument), "") << id;
  }
  EXPECT_FALSE(Exists("/tmp/Mirevo"));
}

TEST_F(Stream, AdmissionNeedsARecordAndADirectory) {
  On("avoton", [this] {
    PlainStream unknown("HLS");
    EXPECT_FALSE(unknown.InitStreamCommon("", false));
    EXPECT_EQ(unknown.GetErrorString(), "");
    EXPECT_TRUE(test::TakeLog().empty());

    MakeStream("HLS", FilmRecord("x"));
    PlainStream gone("HLS");
    std::filesystem::remove_all(Path(Directory("HLS")));
    EXPECT_FALSE(gone.InitStreamCommon("", false));
    EXPECT_EQ(test::TakeLogTexts(),
              List{"liborvoqmx:N Can't file tmp file [" + Path(Directory("HLS")) + "]"});
    EXPECT_EQ(gone.GetErrorString(), "");
  });
}

TEST_F(Stream, AdmissionStoresTheRequestedAudioTrack) {
  On("avoton", [this] {
    MakeStream("HLS", FilmRecord("x"));
    PlainStream stream("HLS");
    EXPECT_TRUE(stream.InitStreamCommon("", false));
    EXPECT_FALSE(Exists(Directory("HLS") + "/audio_id"));
    EXPECT_TRUE(stream.InitStreamCommon("2", false));
    EXPECT_EQ(Read(Directory("HLS") + "/audio_id"), "2");
    EXPECT_TRUE(stream.InitStreamCommon("1", false));
    EXPECT_EQ(stream.GetRequestAudioID(), "1");
    EXPECT_FALSE(stream.InitStreamCommon("7", false));
    EXPECT_EQ(stream.GetErrorString(), "TransAudioNotSupported");
    EXPECT_EQ(stream.GetRequestAudioID(), "1");
  });
}

TEST_F(Stream, AdmissionFailsWhenTheAudioTrackCannotBeStored) {
  On("avoton", [this] {
    MakeStream("HLS", FilmRecord("x"));
    MakeDirectory(Directory("HLS") + "/audio_id");
    PlainStream stream("HLS");
    EXPECT_FALSE(stream.InitStreamCommon("2", false));
    EXPECT_EQ(test::TakeLogTexts(), List{"liborvoqmx:N Failed to save audio ID [2] in [" +
                                         Path(Directory("HLS") + "/audio_id") + "]"});
  });
}

TEST_F(Stream, AdmissionAcceptsAFilmWithoutSoundForAnyTrack) {
  On("avoton", [this] {
    Json::Value record = FilmRecord("x");
    record["track_info"]["audio"] = Json::Value(Json::arrayValue);
    MakeStream("HLS", record);
    EXPECT_TRUE(PlainStream("HLS").InitStreamCommon("7", false));
  });
}

TEST_F(Stream, AdmissionTellsWhyTheHardwareRefusesAVideo) {
  const struct {
    const char* platform;
    const char* profile;
    const char* codec;
    const char* videoProfile;
    unsigned width;
    double rate;
    const char* word;
  } rows[] = {
      {"monaco", "--acodec", "vp9", "", 1280, 25, "TransVideoNotHardwareSupported"},
      {"monaco", "--acodec", "hevc", "Main", 4096, 25, "TransVideoOutOfResolutionCapability"},
      {"monaco", "--acodec", "h264", "High 10", 1280, 25, "TransVideoOutOfProfileCapability"},
      {"monaco", "--acodec", "h264", "High", 3840, 30, "TransVideoOutOfFramerateCapability"},
      {"evansport", "h264_smd", "vp9", "", 1280, 25, "TransVideoNotSupported"},
      {"monaco", "--acodec", "h264", "High", 1280, 30, ""},
      {"monaco", "-vcodec libx264", "vp9", "", 1280, 30, ""},
  };
  for (const auto& row : rows) {
    On(row.platform, [this, &row] {
      Json::Value record = FilmRecord(row.profile);
      Json::Value& video = record["track_info"]["video"][0];
      video["codec"] = row.codec;
      video["profile"] = row.videoProfile;
      video["resolutionx"] = row.width;
      video["framerate"] = row.rate;
      MakeStream("HLS", record);
      PlainStream stream("HLS");
      EXPECT_EQ(stream.InitStreamCommon("", false), *row.word == '\0');
      EXPECT_EQ(stream.GetErrorString(), row.word);
    });
  }
}

TEST_F(Stream, AdmissionWaitsForNobody) {
  On("avoton", [this] {
    MakeStream("HLS", FilmRecord("x"));
    SetRegistry(JsonArray({RegistryEntry(getpid(), false)}));
    PlainStream stream("HLS");
    EXPECT_FALSE(stream.InitStreamCommon("", false));
    EXPECT_EQ(stream.GetErrorString(), "TransEnable");
    EXPECT_FALSE(PlainStream("HLS").InitStreamCommon("", true)) << "force makes no room";
  });
}

TEST_F(Stream, AdmissionOfARemuxAsksNeitherTheHardwareNorTheRegistry) {
  On("monaco", [this] {
    Json::Value record = FilmRecord("-bsf:v h264_mp4toannexb --acodec copy");
    record["track_info"]["video"][0]["codec"] = "vp9";
    MakeStream("HLS", record);
    SetRegistry(JsonArray({RegistryEntry(getpid(), true), RegistryEntry(getpid(), false, true)}));
    PlainStream stream("HLS");
    EXPECT_TRUE(stream.InitStreamCommon("", false));
    EXPECT_EQ(stream.GetErrorString(), "");
  });
}

TEST_F(Stream, AnOfflineConversionRefusesAnUnforcedOpeningEverywhere) {
  for (const char* platform : {"avoton", "braswell", "monaco"}) {
    On(platform, [this] {
      MakeStream("HLS", FilmRecord("x"));
      SetRegistry(JsonArray({RegistryEntry(getpid(), true, true)}));
      PlainStream stream("HLS");
      EXPECT_FALSE(stream.CheckTransLoading(false));
      EXPECT_EQ(stream.GetErrorString(), "TransEnableOfflineConverting");
    });
  }
}

TEST_F(Stream, AForcedOpeningMakesAnOfflineConversionGiveWay) {
  On("avoton", [this] {
    MakeStream("HLS", FilmRecord("x"));
    // It ends by the signal.
    Child conversion([] {
      test::StopHere();
      test::SleepUntilKilled();
    });
    ASSERT_TRUE(conversion.WaitUntilStopped());
    conversion.Continue();
    Write("/run/orvovideoconversiond.pid", std::to_string(conversion.Pid()) + "\n");
    SetRegistry(JsonArray({RegistryEntry(conversion.Pid(), false, true)}));
    PlainStream stream("HLS");
    const double start = test::Now();
    EXPECT_TRUE(stream.CheckTransLoading(true));
    EXPECT_LT(test::Now() - start, 0.9) << "it did not sleep the second out";
    EXPECT_EQ(conversion.Wait(), 128 + SIGUSR1);
  });
}

TEST_F(Stream, AForcedOpeningWithoutAConversionSignalsNobody) {
  On("avoton", [this] {
    MakeStream("HLS", FilmRecord("x"));
    Child other(test::SleepUntilKilled);
    Write("/run/orvovideoconversiond.pid", std::to_string(other.Pid()));
    EXPECT_TRUE(PlainStream("HLS").CheckTransLoading(true));
    EXPECT_TRUE(PlatProcAlive(other.Pid()));
  });
}

TEST_F(Stream, AForcedOpeningWithVaapiIgnoresAnOfflineConversion) {
  On("braswell", [this] {
    MakeStream("HLS", FilmRecord("x"));
    Child conversion(test::SleepUntilKilled);
    Write("/run/orvovideoconversiond.pid", std::to_string(conversion.Pid()));
    SetRegistry(JsonArray({RegistryEntry(conversion.Pid(), true, true)}));
    PlainStream stream("HLS");
    EXPECT_TRUE(stream.CheckTransLoading(true));
    EXPECT_TRUE(PlatProcAlive(conversion.Pid()));
  });
}

TEST_F(Stream, ClosingStopsTheMonitorAndRemovesTheLinkAndItsTarget) {
  ASSERT_TRUE(QMXStream::CreateTmpDir(test::kId, "HLS", "profile", "key", 0));
  Child monitor(test::SleepUntilKilled);
  Write(Directory("HLS") + "/monitor.pid", std::to_string(monitor.Pid()));
  Write(Directory("HLS") + "/slice-00001.ts", "x");
  PlainStream stream("HLS");
  EXPECT_TRUE(stream.CloseStreamCommon());
  EXPECT_EQ(monitor.Wait(), 128 + SIGTERM);
  EXPECT_FALSE(Exists(Directory("HLS")));
  EXPECT_FALSE(Exists(std::string("/volume1/@tmp/Mirevo/HLS/") + test::kId));
  EXPECT_TRUE(Exists("/volume1/@tmp/Mirevo/HLS"));
  EXPECT_TRUE(stream.CloseStreamCommon()) << "already gone";
}

TEST_F(Stream, ClosingNeedsAnIdAndAKind) {
  EXPECT_FALSE(PlainStream("", test::kId).CloseStreamCommon());
  EXPECT_FALSE(PlainStream("HLS", "").CloseStreamCommon());
  EXPECT_FALSE(PlainStream("", test::kId).RemoveTransDir());
  EXPECT_FALSE(PlainStream("HLS", "").RemoveTransDir());
}

TEST_F(Stream, RemovalLeavesARealDirectoryAndRemovesADanglingLink) {
  On("avoton", [this] {
    MakeStream("HTTP", FilmRecord("x"));
    EXPECT_TRUE(PlainStream("HTTP").RemoveTransDir());
    EXPECT_TRUE(Exists(Directory("HTTP") + "/video_metadata"));
    MakeDirectory("/tmp/Mirevo/HLS");
    ASSERT_EQ(symlink("/nowhere/at/all", Path(Directory("HLS")).c_str()), 0);
    EXPECT_TRUE(PlainStream("HLS").RemoveTransDir());
    EXPECT_FALSE(Exists(Directory("HLS")));
  });
}

TEST_F(Stream, RemovalLeavesADirectoryThatIsNoStream) {
  On("avoton", [this] {
    Write("/volume1/photos/one", "kept");
    MakeDirectory("/tmp/Mirevo/HLS");
    ASSERT_EQ(symlink(Path("/volume1/photos").c_str(), Path(Directory("HLS")).c_str()), 0);
    EXPECT_TRUE(PlainStream("HLS").RemoveTransDir());
    EXPECT_FALSE(Exists(Directory("HLS")));
    EXPECT_TRUE(Exists("/volume1/photos/one"));
  });
}

class FilmStream : public test::StreamTest {};

TEST_F(FilmStream, IsOpenedWithAnIdOfItsOwn) {
  On("avoton", [this] {
    Write("/profiles", R"({"key": "-vcodec libx264"})");
    QMXInitArgument argument(test::Film("h264_aac.mp4"), "HLS", Path("/profiles"), "key");
    argument.args["stream_id"] = 5;
    argument.args["hls_header"] = true;
    const std::string id = QMXStream::QMX_Init(argument);
    EXPECT_TRUE(std::regex_match(id, std::regex("[0-9a-f]{32}_[A-Za-z0-9]{8}"))) << id;
    const PlainStream stream("HLS", id);
    EXPECT_EQ(stream.Profile(), "-vcodec libx264");
    EXPECT_EQ(stream.GetFirstVideoInfo()["codec"], "h264");
    EXPECT_EQ(ReadJson("/tmp/Mirevo/HLS/" + id + "/video_metadata")["hls_header"],
              Json::Value(true));
    EXPECT_TRUE(test::TakeLog().empty());
  });
}

TEST_F(FilmStream, IsJoinedByItsId) {
  Write("/profiles", R"({"key": "-vcodec libx264"})");
  QMXInitArgument argument(test::Film("h264_aac.mp4"), "HTTP", Path("/profiles"), "key");
  argument.args["stream_id"] = "joined";
  argument.args["hls_header"] = "true";
  EXPECT_EQ(QMXStream::QMX_Init(argument), "joined");
  EXPECT_EQ(ReadJson("/tmp/Mirevo/HTTP/joined/video_metadata")["hls_header"], Json::Value(false));
  argument.args = Json::Value("no object");
  EXPECT_EQ(QMXStream::QMX_Init(argument).size(), 41U);
}

TEST_F(FilmStream, IsNotOpenedWithoutItsProfile) {
  Write("/profiles", R"({"key": "x"})");
  QMXInitArgument argument(test::Film("h264_aac.mp4"), "HTTP", Path("/profiles"), "other");
  argument.args["stream_id"] = "joined";
  EXPECT_EQ(QMXStream::QMX_Init(argument), "");
  EXPECT_EQ(test::TakeLogTexts(),
            (List{"qmxmetadata:N Failed to copy transcoding profile [other] in [" +
                      Path("/profiles") + "]",
                  "liborvoqmx:N QMXMetaData.ParserMetaData(joined, HTTP) failed"}));
}

TEST_F(FilmStream, IsNotOpenedUnderANameThatItsRecordCannotHold) {
  Write("/profiles", R"({"key": "x"})");
  for (const auto& [name, isOpened] : {std::pair{"\xc3\xa4.mp4", true}, {"\xe4.mp4", false}}) {
    const std::string film = Path(std::string("/") + name);
    std::filesystem::copy_file(test::Film("h264_aac.mp4"), film);
    EXPECT_EQ(!QMXStream::QMX_Init(QMXInitArgument(film, "HTTP", Path("/profiles"), "key")).empty(),
              isOpened)
        << name;
    EXPECT_EQ(Exists("/tmp/Mirevo/HTTP"), isOpened) << name;
    std::filesystem::remove_all(Path("/tmp/Mirevo/HTTP"));
  }
}

TEST_F(FilmStream, IsNotOpenedForAPlaylistInDisguise) {
  Write("/profiles", R"({"key": "x"})");
  for (const char* name : {"playlist.mkv", "script.mkv", "text.mkv", "empty.mkv"}) {
    EXPECT_EQ(
        QMXStream::QMX_Init(QMXInitArgument(test::Film(name), "HTTP", Path("/profiles"), "key")),
        "")
        << name;
  }
}

}  // namespace
