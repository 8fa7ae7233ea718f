#include "stream/webm_stream.h"
#include "stream/pipeline/monitor.h"

#include <gtest/gtest.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

#include <climits>
#include <csignal>
#include <optional>

#include "platform/plat.h"
#include "support/log_capture.h"
#include "support/processes.h"
#include "support/stand_in.h"
#include "support/streams.h"
#include "util/qmxutils.h"

namespace {

using LibOrvoQMX::WebMStream;
using test::FilmRecord;
using test::kFfmpeg;
using test::kId;
using test::kStandIn;
using List = std::vector<std::string>;

constexpr char kProfile[] = "-vcodec libvpx -s hd720\n-vb 1000k -acodec libvorbis -ab 128k -ac 2";
// Writes a line into the pipe that its last argument names, then does as the others.
constexpr char kWriter[] =
    "for out; do case $out in pipe:*) name=$out;; esac; done\n"
    "echo webm > /dev/fd/${name#pipe:}\n";

class WebM : public test::StreamTest {
 protected:
  void SetUp() override {
    StreamTest::SetUp();
    WriteScript(kFfmpeg, std::string(kWriter) + kStandIn);
    standIn_.emplace(Root());
    MakeStreamOnVolume("WEBM", FilmRecord(kProfile));
  }

  static std::string File(const std::string& name) { return Directory("WEBM") + "/" + name; }
  pid_t Monitor() const { return std::stoi(Read(File("monitor.pid"))); }
  pid_t NextStarted() const { return standIn_->NextStarted(); }

  static std::string ReadToEnd(WebMStream& stream) {
    std::string all;
    char buffer[100];
    for (int count = 0; (count = stream.Read(buffer, sizeof(buffer))) > 0;) {
      all.append(buffer, static_cast<size_t>(count));
    }
    return all;
  }
  static std::string ReadLine(WebMStream& stream) {
    std::string line;
    for (char byte = 0; stream.Read(&byte, 1) == 1 && byte != '\n';) {
      line += byte;
    }
    return line;
  }

  // The encoder and its options that an audio track gets.
  List AudioOf(const Json::Value& track) const {
    Json::Value record = FilmRecord("-acodec libvorbis -ab 128k");
    record["track_info"]["audio"][0] = track;
    WriteJson(File("video_metadata"), record);
    List arguments = WebMStream(kId).CalculateFFmpegArgument();
    arguments.resize(arguments.size() - 4);
    return arguments;
  }

  std::optional<test::StandIn> standIn_;
};

TEST_F(WebM, CarriesWhatTheTranscoderWrites) {
  On("avoton", [this] {
    WriteScript(kFfmpeg, std::string("printf '%s\\n' \"$0\" \"$@\" > \"$ORVO_SYSROOT/argv\"\n") +
                             kWriter + "head -c 300000 /dev/zero > /dev/fd/${name#pipe:}\n");
    WebMStream stream(kId);
    ASSERT_TRUE(stream.Init("1"));
    ASSERT_TRUE(stream.Transcoding("/any/program", 83));
    EXPECT_EQ(stream.GetSeekTimeInMillisecond(), 83000);
    EXPECT_EQ(ReadToEnd(stream), "webm\n" + std::string(300000, '\0'));
    test::ReapAll();
    EXPECT_EQ(Registry(), Json::Value(Json::arrayValue));
    EXPECT_TRUE(stream.Close());
    EXPECT_FALSE(Exists(Directory("WEBM")));
    EXPECT_TRUE(test::TakeLog().empty());
  });
  const std::string expected =
      Path(kFfmpeg) +
      "\n-ss\n83.000\n-i\n/volume1/video/film.mkv\n-vcodec\nlibvpx\n-s\n1280x720\n-vb\n1000k\n"
      "-acodec\nlibshine\n-ab\n128k\n-ac\n2\n-webm_seek_time\n83\n-avoid_negative_ts\n0\n"
      "-map\n0:0\n-map\n0:1\npipe:";
  EXPECT_EQ(Read("/argv").substr(0, expected.size()), expected);
}

TEST_F(WebM, TellsItsCommandLineBeforeItIsOpened) {
  On("avoton", [this] {
    WriteScript(kFfmpeg, "printf '%s\\n' \"$0\" \"$@\" > \"$ORVO_SYSROOT/argv\"\n");
    const auto plan =
        LibOrvoQMX::QMXMetaData::Plan(Load(FilmRecord(kProfile)), "key", kProfile, "");
    const List expected = WebMStream(plan).CommandLine(7);
    WebMStream stream(kId);
    ASSERT_TRUE(stream.Transcoding("x", 0));
    ReadToEnd(stream);
    stream.Close();
    test::ReapAll();
    List run = LibOrvoQMX::StringExplode(Read("/argv"), "\n");
    run.back() = "pipe:7";
    EXPECT_EQ(run, expected);
  });
}

TEST_F(WebM, BeginsAnywhereUpToTheEnd) {
  On("avoton", [this] {
    WriteScript(kFfmpeg, "exit\n");
    EXPECT_TRUE(WebMStream(kId).Transcoding("x", 100));
    for (const int start : {101, -1, INT_MAX, INT_MIN}) {
      WebMStream stream(kId);
      EXPECT_FALSE(stream.Transcoding("x", start)) << start;
      EXPECT_EQ(stream.GetSeekTimeInMillisecond(), 0);
    }
    test::ReapAll();
  });
}

TEST_F(WebM, NeedsAStreamAndAProgram) {
  On("avoton", [] {
    EXPECT_FALSE(WebMStream("").Transcoding("x", 0));
    EXPECT_FALSE(WebMStream(kId).Transcoding("", 0));
    EXPECT_FALSE(WebMStream("unknown").Init(""));
    EXPECT_FALSE(WebMStream("unknown").KillMonitor());
  });
}

TEST_F(WebM, UsesTheCommonAdmission) {
  On("avoton", [this] {
    WriteJson(File("video_metadata"), FilmRecord("-h264_mp4toannexb"));
    EXPECT_TRUE(WebMStream(kId).Init("2"));
    EXPECT_EQ(Read(File("audio_id")), "2");
    SetRegistry(test::JsonArray({test::RegistryEntry(getpid(), false, true)}));
    EXPECT_TRUE(WebMStream(kId).Init("")) << "a copied picture is no load";
    WriteJson(File("video_metadata"), FilmRecord(kProfile));
    WebMStream stream(kId);
    EXPECT_FALSE(stream.Init(""));
    EXPECT_EQ(stream.GetErrorString(), "TransEnableOfflineConverting");
    EXPECT_TRUE(Exists(Directory("WEBM")));
  });
}

TEST_F(WebM, TellsTheTranscoderItsStart) {
  On("avoton", [] {
    const List arguments = WebMStream(kId).CalculateFFmpegArgument();
    EXPECT_EQ(List(arguments.end() - 4, arguments.end()),
              (List{"-webm_seek_time", "0", "-avoid_negative_ts", "0"}));
  });
}

TEST_F(WebM, CopiesTheAudioThatItsPlayersKnow) {
  On("avoton", [this] {
    for (const char* codec : {"aac", "mp3"}) {
      const Json::Value track =
          test::ParseText(R"({"codec": ")" + std::string(codec) + R"(", "id": "1"})");
      EXPECT_EQ(AudioOf(track), (List{"-acodec", "copy"})) << codec;
    }
    for (const char* codec : {"ac3", "vorbis"}) {
      const Json::Value track =
          test::ParseText(R"({"codec": ")" + std::string(codec) + R"(", "id": "1"})");
      EXPECT_EQ(AudioOf(track), (List{"-acodec", "libshine", "-ab", "128k"})) << codec;
    }
  });
}

TEST_F(WebM, ArgumentsAreEmptyWithoutAPictureOrAProfile) {
  On("avoton", [this] {
    Json::Value record = FilmRecord(kProfile);
    record["track_info"]["video"][0]["resolutionx"] = 0;
    WriteJson(File("video_metadata"), record);
    EXPECT_EQ(WebMStream(kId).CalculateFFmpegArgument(), List());
    WebMStream stream(kId);
    EXPECT_TRUE(stream.Transcoding("x", 0));
    EXPECT_EQ(ReadToEnd(stream), "");
    test::ReapAll();
    EXPECT_FALSE(standIn_->HasStarted());
    WriteJson(File("video_metadata"), FilmRecord(""));
    EXPECT_EQ(WebMStream(kId).CalculateFFmpegArgument(), List());
  });
}

TEST_F(WebM, IsEmptyBeforeItBegins) {
  On("avoton", [] {
    char byte = 0;
    WebMStream stream(kId);
    EXPECT_EQ(stream.Read(&byte, 1), 0);
    EXPECT_EQ(stream.GetSeekTimeInMillisecond(), 0);
  });
}

TEST_F(WebM, EndsWithASignalToTheMonitor) {
  On("avoton", [this] {
    for (const int number : {SIGTERM, SIGINT}) {
      // Says that it was interrupted.
      WriteScript(kFfmpeg, std::string("trap 'echo bye > /dev/fd/${name#pipe:}; exit' INT\n") +
                               kWriter + "echo $$ > \"$ORVO_SYSROOT/started\"\n" +
                               "while :; do sleep 0.01; done\n");
      WebMStream stream(kId);
      ASSERT_TRUE(stream.Transcoding("x", 0));
      const pid_t transcoder = NextStarted();
      EXPECT_EQ(Registry(), test::JsonArray({test::RegistryEntry(transcoder, false)}));
      EXPECT_EQ(ReadLine(stream), "webm");
      const double start = test::Now();
      kill(Monitor(), number);
      EXPECT_EQ(ReadToEnd(stream), "bye\n");
      test::ReapAll();
      EXPECT_LT(test::Now() - start, 1.5) << "no look every two seconds";
      EXPECT_FALSE(PlatProcAlive(transcoder));
      EXPECT_EQ(Registry(), Json::Value(Json::arrayValue));
    }
  });
}

TEST_F(WebM, OfACopiedPictureLeavesTheRegisterAlone) {
  On("avoton", [this] {
    WriteJson(File("video_metadata"), FilmRecord("-bsf:v h264_mp4toannexb"));
    WebMStream stream(kId);
    ASSERT_TRUE(stream.Transcoding("x", 0));
    const pid_t transcoder = NextStarted();
    SetRegistry(test::JsonArray({test::RegistryEntry(transcoder, false)}));
    EXPECT_TRUE(stream.KillMonitor());
    EXPECT_EQ(ReadToEnd(stream), "webm\n");
    test::ReapAll();
    EXPECT_EQ(Registry().size(), 1U);
  });
}

TEST_F(WebM, EndsWhenItsReaderLeaves) {
  On("avoton", [this] {
    WriteScript(kFfmpeg, std::string("echo $$ > \"$ORVO_SYSROOT/started\"\n") + kWriter +
                             "exec cat /dev/zero > /dev/fd/${name#pipe:}\n");
    signal(SIGPIPE, SIG_IGN);  // as a request has it
    pid_t transcoder = 0;
    {
      WebMStream stream(kId);
      ASSERT_TRUE(stream.Transcoding("x", 0));
      transcoder = NextStarted();
      EXPECT_EQ(ReadLine(stream), "webm");
    }
    test::ReapAll();
    EXPECT_FALSE(PlatProcAlive(transcoder));
    EXPECT_EQ(Registry(), Json::Value(Json::arrayValue));
  });
}

TEST_F(WebM, ASeekStartsAnotherTranscoder) {
  On("avoton", [this] {
    WebMStream first(kId);
    ASSERT_TRUE(first.Transcoding("x", 0));
    const pid_t old = NextStarted();
    const pid_t oldMonitor = Monitor();
    WebMStream second(kId);
    ASSERT_TRUE(second.Transcoding("x", 60));
    EXPECT_NE(Monitor(), oldMonitor) << "recorded before Transcoding comes back";
    const pid_t transcoder = NextStarted();
    EXPECT_FALSE(PlatProcAlive(old));
    EXPECT_EQ(ReadToEnd(first), "webm\n");
    EXPECT_EQ(Registry(), test::JsonArray({test::RegistryEntry(transcoder, false)}));
    EXPECT_TRUE(second.Close());
    EXPECT_EQ(ReadToEnd(second), "webm\n");
    test::ReapAll();
    EXPECT_FALSE(PlatProcAlive(transcoder));
  });
}

TEST_F(WebM, StartReturnsOnceTheMonitorIsRecorded) {
  test::Pipe began;
  test::Pipe release;
  test::Pipe answer;
  test::Child request([&] {
    const auto record = [&] {
      began.Write("x");
      return release.Read(1).empty();
    };
    LibOrvoQMX::StartMonitor(SIG_DFL, record, [] {});
    answer.Write("x");
  });
  EXPECT_EQ(began.Read(1), "x");
  pollfd early{answer.ReadEnd(), POLLIN, 0};
  EXPECT_EQ(poll(&early, 1, 300), 0) << "nothing is recorded yet";
  release.Write("x");
  EXPECT_EQ(answer.Read(1), "x");
  EXPECT_EQ(request.Wait(), 0);
  test::ReapAll();
}

TEST_F(WebM, CloseJustAfterTheStartFindsTheMonitor) {
  On("avoton", [this] {
    for (int i = 0; i < 5; ++i) {
      WebMStream stream(kId);
      ASSERT_TRUE(stream.Transcoding("x", 0));
      ASSERT_TRUE(Exists(File("monitor.pid")));
      const pid_t monitor = Monitor();
      EXPECT_TRUE(stream.Close());
      // Both end only when they are told to.
      ReadToEnd(stream);
      test::ReapAll();
      EXPECT_FALSE(PlatProcAlive(monitor));
      MakeStreamOnVolume("WEBM", FilmRecord(kProfile));
    }
  });
}

TEST_F(WebM, KillsATranscoderThatWillNotEnd) {
  On("avoton", [this] {
    WriteScript(kFfmpeg, std::string("trap '' INT\n") + kStandIn);
    WebMStream stream(kId);
    ASSERT_TRUE(stream.Transcoding("x", 0));
    const pid_t transcoder = NextStarted();
    stream.KillMonitor();
    EXPECT_EQ(ReadToEnd(stream), "");
    test::ReapAll();
    EXPECT_FALSE(PlatProcAlive(transcoder));
  });
}

TEST_F(WebM, EndsWithTheMonitorHoweverTheMonitorEnds) {
  On("avoton", [this] {
    WebMStream stream(kId);
    ASSERT_TRUE(stream.Transcoding("x", 0));
    const pid_t transcoder = NextStarted();
    kill(Monitor(), SIGKILL);
    EXPECT_EQ(ReadToEnd(stream), "webm\n");
    test::ReapAll();
    EXPECT_FALSE(PlatProcAlive(transcoder));
  });
}

TEST_F(WebM, WorksWithoutStandardStreams) {
  On("avoton", [this] {
    WriteScript(kFfmpeg, std::string(kWriter) + "exit\n");
    test::Pipe answer;
    test::Child request([&] {
      for (int fd = 0; fd < 3; ++fd) {
        close(fd);
      }
      WebMStream stream(kId);
      stream.Transcoding("x", 0);
      answer.Write(ReadToEnd(stream));
    });
    EXPECT_EQ(answer.ReadToEnd(), "webm\n");
    request.Wait();
    test::ReapAll();
  });
}

}  // namespace
