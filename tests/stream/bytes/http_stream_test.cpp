#include "stream/http_stream.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/inotify.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <set>

#include "platform/plat.h"
#include "policy/trans_loading.h"
#include "support/log_capture.h"
#include "support/processes.h"
#include "support/streams.h"
#include "util/qmxutils.h"

namespace {

using LibOrvoQMX::HttpStream;
using test::Child;
using test::FilmRecord;
using test::JsonArray;
using test::kId;
using test::Pipe;
using test::RegistryEntry;
using List = std::vector<std::string>;

constexpr char kRegistry[] = "/tmp/Mirevo/enabled";

// Waits until somebody has rewritten the registry.
class RegistryWriting {
 public:
  explicit RegistryWriting(const std::string& path) : fd_(inotify_init1(IN_CLOEXEC)) {
    EXPECT_GE(inotify_add_watch(fd_, path.c_str(), IN_CLOSE_WRITE), 0);
  }
  RegistryWriting(const RegistryWriting&) = delete;
  RegistryWriting& operator=(const RegistryWriting&) = delete;
  ~RegistryWriting() { close(fd_); }
  void Wait() const {
    char event[4096];
    EXPECT_GT(read(fd_, event, sizeof(event)), 0);
  }

 private:
  int fd_;
};

class Http : public test::StreamTest {
 protected:
  // A transcoder that writes down its arguments, then does `work` with the pipe's path in $out.
  std::string Transcoder(const std::string& work) const {
    return WriteScript("/transcoder",
                       "printf '%s\\n' \"$@\" > \"$ORVO_SYSROOT/argv\"\n"
                       "for out; do case $out in *:*) name=$out;; esac; done\n"
                       "out=/dev/fd/${name#*:}\n" +
                           work);
  }

  static std::string ReadAll(HttpStream& stream) {
    std::string all;
    char buffer[1000];
    for (int count = 0; (count = stream.Read(buffer, sizeof(buffer))) > 0;) {
      all.append(buffer, static_cast<size_t>(count));
    }
    return all;
  }

  // Starts a stream as a caller has to: a process that was forked on the way leaves at once, and
  // says so.
  static bool Start(HttpStream& stream, const std::string& executable, int start,
                    const Pipe* strays = nullptr) {
    const pid_t self = getpid();
    const bool result = stream.Transcoding(executable, start);
    if (getpid() != self) {
      if (strays != nullptr) {
        strays->Write(result ? "true" : "false");
      }
      _exit(0);
    }
    return result;
  }

  Json::Value Entries() const { return Sysroot::Registry(); }

  // The ends of pipes that this process has.
  static std::set<int> Pipes() {
    std::set<int> numbers;
    std::error_code failure;
    for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
      if (std::filesystem::read_symlink(entry.path(), failure).string().rfind("pipe:", 0) == 0) {
        numbers.insert(std::stoi(entry.path().filename()));
      }
    }
    return numbers;
  }
};

TEST_F(Http, CarriesWhatTheTranscoderWrites) {
  On("avoton", [this] {
    MakeStream("HTTP", FilmRecord("-vcodec libx264 -s hd720\n-vb 1000k"));
    const std::string program =
        Transcoder("head -c 300000 /dev/zero > \"$out\"; printf end > \"$out\"\n");
    HttpStream stream(kId);
    ASSERT_TRUE(stream.Init("2"));
    ASSERT_TRUE(Start(stream, program, 83));
    EXPECT_EQ(ReadAll(stream), std::string(300000, '\0') + "end");
    char byte = 0;
    EXPECT_EQ(stream.Read(&byte, 1), -1) << "the end stays the end";
    EXPECT_TRUE(stream.Close());
    EXPECT_EQ(stream.Read(&byte, 1), -1);
    EXPECT_FALSE(Exists(Directory("HTTP")));
    EXPECT_TRUE(test::TakeLog().empty());
    test::ReapAll();
  });
  const std::string argv = Read("/argv");
  const std::string expected =
      "-ss\n83.000\n-copyts\n-i\n/volume1/video/film.mkv\n-vcodec\nlibx264\n-s\n1280x720\n-vb\n"
      "1000k\n-map\n0:0\n-map\n0:2\npipe:";
  EXPECT_EQ(argv.substr(0, expected.size()), expected);
}

TEST_F(Http, OfWindowsMediaVideoKeepsTheShapeAndCopiesNoTimes) {
  On("avoton", [this] {
    Json::Value record = FilmRecord("-vcodec wmv2 -s hd480");
    record["track_info"]["video"][0]["sample_aspect_ratio_num"] = 0;
    record["track_info"]["video"][0]["rotate"] = 90;
    MakeStream("HTTP", record);
    HttpStream stream(kId);
    EXPECT_EQ(stream.CalculateFFmpegArgument(), (List{"-vcodec", "wmv2", "-s", "852x478"}))
        << "and takes no notice of the source's rotation";
    ASSERT_TRUE(Start(stream, Transcoder(""), 0));
    EXPECT_EQ(ReadAll(stream), "");
    stream.Close();
    test::ReapAll();
  });
  EXPECT_EQ(Read("/argv").substr(0, 30), "-ss\n0.000\n-i\n/volume1/video/fi");
}

TEST_F(Http, ThatIsNotOpenTellsItsCommandLine) {
  On("avoton", [this] {
    const Json::Value record = FilmRecord("-vcodec libx264 -s hd720");
    const auto plan =
        LibOrvoQMX::QMXMetaData::Plan(Load(record), "key", record["profile_value"].asString(), "");
    const std::string program = Transcoder("");
    List expected = HttpStream(plan).CommandLine(program, 7);
    ASSERT_FALSE(expected.empty());
    EXPECT_EQ(expected.front(), program);
    EXPECT_EQ(expected.back(), "pipe:7");
    EXPECT_FALSE(Exists(Directory("HTTP"))) << "and makes nothing";

    MakeStream("HTTP", record);
    HttpStream stream(kId);
    ASSERT_TRUE(Start(stream, program, 0));
    ReadAll(stream);
    stream.Close();
    test::ReapAll();
    List run = LibOrvoQMX::StringExplode(Read("/argv"), "\n");
    run.back() = "pipe:7";
    expected.erase(expected.begin());
    EXPECT_EQ(run, expected);
  });
}

TEST_F(Http, ThatIsNotOpenedRunsNothingWithoutAPicture) {
  On("avoton", [this] {
    Json::Value record = FilmRecord("-vcodec libx264");
    record["track_info"]["video"] = Json::Value(Json::arrayValue);
    const auto plan = LibOrvoQMX::QMXMetaData::Plan(Load(record), "key", "-vcodec libx264", "");
    EXPECT_TRUE(HttpStream(plan).CommandLine("x", 1).empty());
    EXPECT_FALSE(HttpStream(plan).Transcoding("x", 0)) << "it has no id";
  });
}

TEST_F(Http, PassesADescriptorToTheWrapper) {
  On("braswell", [this] {
    MakeStream("HTTP", FilmRecord("--acodec aac --vb\n 1000"));
    HttpStream stream(kId);
    EXPECT_EQ(stream.CalculateGstreamerArgument(), (List{"--acodec", "aac", "--vb\n", "1000"}));
    ASSERT_TRUE(Start(stream, Transcoder("printf data > \"$out\"\n"), 61));
    EXPECT_EQ(ReadAll(stream), "data");
    stream.Close();
    test::ReapAll();
  });
  const std::string argv = Read("/argv");
  const std::string expected =
      "-s\n61\n-i\n/volume1/video/film.mkv\n--acodec\naac\n--vb\n\n1000\n--shiftpts\n-o\nfd:";
  EXPECT_EQ(argv.substr(0, expected.size()), expected);
  EXPECT_NE(argv.find("\n--aidx\n0\n"), std::string::npos);
}

TEST_F(Http, LogsALostDescriptor) {
  On("avoton", [this] {
    MakeStream("HTTP", FilmRecord("-vcodec libx264"));
    HttpStream stream(kId);
    const std::set<int> before = Pipes();
    ASSERT_TRUE(Start(stream, Transcoder("exit\n"), 0));
    for (const int number : Pipes()) {
      if (before.count(number) == 0) {
        close(number);
      }
    }
    char byte = 0;
    EXPECT_EQ(stream.Read(&byte, 1), -1);
    EXPECT_EQ(test::TakeLogTexts(), List{"http_stream:N Select error: " + std::to_string(EBADF)});
    stream.Close();
    test::ReapAll();
  });
}

TEST_F(Http, RecordsTheTranscoderAndForgetsItWhenClosed) {
  On("avoton", [this] {
    MakeStream("HTTP", FilmRecord("-vcodec libx264"));
    HttpStream stream(kId);
    ASSERT_TRUE(Start(stream, Transcoder("echo $$ > \"$out\"; exec sleep 1000\n"), 0));
    char buffer[100];
    const int count = stream.Read(buffer, sizeof(buffer));
    ASSERT_GT(count, 0);
    const int pid = std::stoi(std::string(buffer, static_cast<size_t>(count)));
    EXPECT_EQ(Read(Directory("HTTP") + "/monitor.pid"), std::to_string(pid));
    EXPECT_EQ(Entries(), JsonArray({RegistryEntry(pid, false)}));
    EXPECT_TRUE(stream.IsFFmpegRun());
    EXPECT_TRUE(stream.Close());
    EXPECT_EQ(Entries(), JsonArray({}));
    EXPECT_FALSE(Exists(Directory("HTTP")));
    test::ReapAll();  // it would wait for ever for one that was not ended
  });
}

TEST_F(Http, LeavesTheStandardStreamsOfTheCallerAlone) {
  On("avoton", [this] {
    MakeStream("HTTP", FilmRecord("-vcodec libx264"));
    HttpStream stream(kId);
    Pipe output;
    const int kept = dup(STDOUT_FILENO);
    dup2(output.WriteEnd(), STDOUT_FILENO);
    ASSERT_TRUE(
        Start(stream, Transcoder("echo lost; echo lost >&2; cat; printf x > \"$out\"\n"), 0));
    EXPECT_EQ(ReadAll(stream), "x");
    dup2(kept, STDOUT_FILENO);
    close(kept);
    EXPECT_EQ(output.ReadToEnd(), "") << "and no process holds the caller's output open";
    stream.Close();
    test::ReapAll();
  });
}

TEST_F(Http, WorksForACallerWithoutStandardStreams) {
  On("avoton", [this] {
    MakeStream("HTTP", FilmRecord("-vcodec libx264"));
    const std::string program = Transcoder("printf data > \"$out\"\n");
    Pipe report;
    Child caller([&] {
      fflush(nullptr);
      close(0);
      close(1);
      close(2);
      HttpStream stream(kId);
      Start(stream, program, 0);
      report.Write(ReadAll(stream) == "data" ? "data" : "nothing");
      _exit(0);
    });
    EXPECT_EQ(report.ReadToEnd(), "data");
    EXPECT_EQ(caller.Wait(), 0);
    test::ReapAll();
  });
}

TEST_F(Http, EndsAtOnceWhenTheTranscoderCannotStart) {
  On("avoton", [this] {
    MakeStream("HTTP", FilmRecord("-vcodec libx264"));
    const double start = test::Now();
    HttpStream missing(kId);
    ASSERT_TRUE(Start(missing, Path("/missing"), 0));
    EXPECT_EQ(ReadAll(missing), "");
    HttpStream negative(kId);
    ASSERT_TRUE(Start(negative, Transcoder("printf x > \"$out\"\n"), -1));
    EXPECT_EQ(ReadAll(negative), "");
    SetRegistry(JsonArray({RegistryEntry(getpid(), false)}));
    HttpStream refused(kId);
    ASSERT_TRUE(Start(refused, Transcoder("printf x > \"$out\"\n"), 0));
    EXPECT_EQ(ReadAll(refused), "");
    EXPECT_LT(test::Now() - start, 5.0);
    test::ReapAll();
  });
}

TEST_F(Http, ThatCannotBePreparedReturnsFalseInTheDetachedProcess) {
  On("avoton", [this] {
    // Without a width there are no arguments.
    Json::Value record = FilmRecord("-vcodec libx264");
    record["track_info"]["video"] = Json::Value(Json::arrayValue);
    MakeStream("HTTP", record);
    {
      Pipe strays;
      HttpStream stream(kId);
      EXPECT_TRUE(Start(stream, "/bin/true", 0, &strays)) << "the caller itself goes on";
      EXPECT_EQ(strays.ReadToEnd(), "false");
      EXPECT_EQ(ReadAll(stream), "");
    }
    // Nor is there a place for its pid.
    std::filesystem::remove_all(Path(Directory("HTTP")));
    {
      Pipe strays;
      HttpStream stream(kId);
      EXPECT_TRUE(Start(stream, "/bin/true", 0, &strays));
      EXPECT_EQ(strays.ReadToEnd(), "false");
    }
    test::ReapAll();
  });
}

TEST_F(Http, IsNotStartedWithoutAnIdOrAProgram) {
  EXPECT_FALSE(HttpStream("").Transcoding("/bin/true", 0));
  EXPECT_FALSE(HttpStream(kId).Transcoding("", 0));
}

TEST_F(Http, ClosesInEveryState) {
  HttpStream nobody("");
  EXPECT_FALSE(nobody.Close());
  HttpStream unknown(kId);
  EXPECT_TRUE(unknown.Close());
  MakeDirectory(Directory("HTTP") + "/sub");
  EXPECT_TRUE(unknown.Close()) << "without a recorded process";
  EXPECT_FALSE(Exists(Directory("HTTP")));
  On("avoton", [this] {
    for (const char* content : {"0", "-1", "x", " "}) {
      ASSERT_EQ(setpgid(0, 0), 0);
      Write(Directory("HTTP") + "/monitor.pid", content);
      EXPECT_TRUE(HttpStream(kId).Close());
      EXPECT_FALSE(Exists(Directory("HTTP"))) << content;
    }
  });
}

TEST_F(Http, LeavesNoDirectoryWhenItIsNotAdmitted) {
  const std::string noSpace = "TransSapceNotEnough";
  On("avoton", [&] {
    MakeDirectory(Directory("HTTP", noSpace));
    HttpStream refused(noSpace);
    EXPECT_FALSE(refused.Init(""));
    EXPECT_EQ(refused.GetErrorString(), noSpace);
    EXPECT_FALSE(Exists(Directory("HTTP", noSpace)));

    MakeDirectory(Directory("HTTP") + "/sub");
    HttpStream noRecord(kId);
    EXPECT_FALSE(noRecord.Init(""));
    EXPECT_EQ(noRecord.GetErrorString(), "");
    EXPECT_FALSE(Exists(Directory("HTTP")));

    MakeStream("HTTP", FilmRecord("x"));
    HttpStream gone(kId);
    std::filesystem::remove_all(Path(Directory("HTTP")));
    EXPECT_FALSE(gone.Init("1"));
    EXPECT_FALSE(Exists(Directory("HTTP")));

    MakeStream("HTTP", FilmRecord("x"));
    MakeDirectory(Directory("HTTP") + "/audio_id");
    HttpStream noWish(kId);
    test::TakeLog();
    EXPECT_FALSE(noWish.Init("1"));
    EXPECT_EQ(test::TakeLogTexts(), List{"http_stream:N Failed to save audio ID [1] in [" +
                                         Path(Directory("HTTP") + "/audio_id") + "]"});
    EXPECT_FALSE(Exists(Directory("HTTP")));

    EXPECT_FALSE(HttpStream("").Init(""));
    EXPECT_TRUE(Exists("/tmp/Mirevo/HTTP")) << "the others' place stays";
  });
}

TEST_F(Http, RemovesNothingOutsideItsKind) {
  Write("/tmp/Mirevo/HTTP/other/file", "x");
  Write("/tmp/kept/file", "x");
  HttpStream("../../kept").Close();
  HttpStream("../../kept").Init("");
  HttpStream("..").Close();
  EXPECT_TRUE(Exists("/tmp/kept/file"));
  EXPECT_TRUE(Exists("/tmp/Mirevo/HTTP/other/file"));
}

TEST_F(Http, IsAdmittedWithoutAnyOtherCheck) {
  // Neither an unknown audio track nor an offline conversion of the other kind keeps it out.
  On("braswell", [this] {
    MakeStream("HTTP", FilmRecord("x"));
    SetRegistry(JsonArray({RegistryEntry(getpid(), true, true)}));
    HttpStream stream(kId);
    EXPECT_TRUE(stream.Init("77"));
    EXPECT_EQ(Read(Directory("HTTP") + "/audio_id"), "77");
    EXPECT_TRUE(stream.Init(""));
    EXPECT_EQ(Read(Directory("HTTP") + "/audio_id"), "77");
  });
}

TEST_F(Http, IsAdmittedAsSoonAsThePreviousOneDies) {
  On("avoton", [this] {
    MakeStream("HTTP", FilmRecord("x"));
    Child busy(test::SleepUntilKilled);
    SetRegistry(JsonArray({RegistryEntry(busy.Pid(), false)}));
    const RegistryWriting writing(Path(kRegistry));
    Child waiter([] { EXPECT_TRUE(HttpStream(kId).Init("")); });
    writing.Wait();  // it has been refused once
    const double start = test::Now();
    busy.Kill(SIGKILL);
    EXPECT_EQ(waiter.Wait(), 0);
    EXPECT_LT(test::Now() - start, 0.5);
  });
}

TEST_F(Http, IsAdmittedAsSoonAsThePreviousOneIsUnregistered) {
  On("avoton", [this] {
    MakeStream("HTTP", FilmRecord("x"));
    SetRegistry(JsonArray({RegistryEntry(getpid(), false)}));
    const RegistryWriting writing(Path(kRegistry));
    Child waiter([] { EXPECT_TRUE(HttpStream(kId).Init("")); });
    writing.Wait();
    const double start = test::Now();
    LibMirevo::TransLoading().RemoveTransPIDLock(getpid());
    EXPECT_EQ(waiter.Wait(), 0);
    EXPECT_LT(test::Now() - start, 0.9);
  });
}

TEST_F(Http, LeavesTheRegistryFreeWhileItWaits) {
  On("avoton", [this] {
    MakeStream("HTTP", FilmRecord("x"));
    SetRegistry(JsonArray({RegistryEntry(getpid(), false)}));
    const RegistryWriting writing(Path(kRegistry));
    Child waiter([] { HttpStream(kId).Init(""); });
    writing.Wait();
    const double start = test::Now();
    for (int i = 0; i < 20; ++i) {
      EXPECT_TRUE(LibMirevo::TransLoading().IsLockSucess());
    }
    EXPECT_LT(test::Now() - start, 0.5);
  });
}

TEST_F(Http, StartsAtTheRequestedSecond) {
  On("avoton", [this] {
    MakeStream("HTTP", FilmRecord("-vcodec libx264"));
    HttpStream stream(kId);
    EXPECT_EQ(stream.GetSeekTimeInMillisecond(), 0);
    ASSERT_TRUE(Start(stream, "/bin/true", 83));
    EXPECT_EQ(stream.GetSeekTimeInMillisecond(), 83000);
    EXPECT_EQ(stream.GetMetaVideoRotate(), 0U);
    EXPECT_EQ(ReadAll(stream), "");
    ASSERT_TRUE(Start(stream, "/bin/true", INT_MAX));
    EXPECT_GT(stream.GetSeekTimeInMillisecond(), 0) << "no later start than can be told";
    EXPECT_EQ(ReadAll(stream), "");
    test::ReapAll();
  });
}

class HttpArithmetic : public test::StreamTest {
 protected:
  void With(const Json::Value& record, const std::function<void(HttpStream&)>& check) const {
    MakeStream("HTTP", record);
    On("avoton", [&] {
      HttpStream stream(kId);
      check(stream);
    });
  }
  static Json::Value Shaped(unsigned width, unsigned height) {
    Json::Value record = FilmRecord("x");
    record["track_info"]["video"][0]["resolutionx"] = width;
    record["track_info"]["video"][0]["resolutiony"] = height;
    return record;
  }
};

TEST_F(HttpArithmetic, SizesTakeTheFilmsShapeAndRoundTheWidthUp) {
  const struct {
    unsigned width;
    unsigned height;
    const char* request;
    const char* size;
  } rows[] = {
      {1920, 1080, "hd720", "1280x720"},   {1920, 1080, "hd480", "860x480"},
      {640, 480, "hd480", "640x480"},      {2350, 1000, "hd480", "1130x480"},
      {17778, 10000, "hd720", "1290x720"}, {1920, 1080, "1920x1080", "1920x1080"},
      {1920, 1080, "hd1080", "hd1080"},    {0, 0, "hd720", "1280x720"},
  };
  for (const auto& row : rows) {
    With(Shaped(row.width, row.height), [&](HttpStream& stream) {
      std::string size = "old";
      EXPECT_TRUE(stream.QMX_HTTP_SCALE_RESOLUTION(row.request, size));
      EXPECT_EQ(size, row.size) << row.width << "x" << row.height;
    });
  }
  With(Shaped(1920, 1080), [](HttpStream& stream) {
    std::string size = "old";
    EXPECT_FALSE(stream.QMX_HTTP_SCALE_RESOLUTION("", size));
    EXPECT_EQ(size, "");
  });
}

TEST_F(HttpArithmetic, TheProfileKeyContainsTheRates) {
  const struct {
    const char* key;
    int rate;
  } rows[] = {
      {"hd720_vb1000_ab128", 1286144},
      {"ab128_vb1000", 1286144},
      {"vb1000\nab128", 1286144},
      {"vb1_vb1000_ab1_ab128", 1286144},
      {"vb1000", -1},
      {"ab128", -1},
      {"", -1},
      {"___", -1},
      {"xvb1000_ab128", -1},
      {"vb_ab", 0},
      {"vb1000k_ab128k", 1286144},
      {"VB1000_ab128", -1},
  };
  for (const auto& row : rows) {
    With(FilmRecord("x", row.key),
         [&](HttpStream& stream) { EXPECT_EQ(stream.GetTransBitRate(), row.rate) << row.key; });
  }
}

TEST_F(HttpArithmetic, BytesAndSecondsFollowFromTheRate) {
  With(FilmRecord("x", "vb1000_ab128"), [](HttpStream& stream) {
    EXPECT_EQ(stream.QMX_HTTP_PredictTransFileSize(), 16076800);
    EXPECT_EQ(stream.ConvertByteRangeToTimeRange(8038400), 50);
    EXPECT_EQ(stream.ConvertByteRangeToTimeRange(8038399), 49);
    EXPECT_EQ(stream.ConvertByteRangeToTimeRange(0), 0);
    // Offsets that no film has must not do harm.
    stream.ConvertByteRangeToTimeRange(INT64_MAX);
    stream.ConvertByteRangeToTimeRange(INT64_MIN);
  });
  for (const char* key : {"vb1000", "ab128", "none"}) {
    With(FilmRecord("x", key), [](HttpStream& stream) {
      EXPECT_EQ(stream.QMX_HTTP_PredictTransFileSize(), 0);
      EXPECT_EQ(stream.ConvertByteRangeToTimeRange(1000), -1);
    });
  }
  With(FilmRecord("x", "vb_ab"),
       [](HttpStream& stream) { EXPECT_EQ(stream.ConvertByteRangeToTimeRange(1000), -1); });
  Json::Value endless = FilmRecord("x", "vb1000_ab128");
  endless["duration"] = 0;
  With(endless, [](HttpStream& stream) { EXPECT_EQ(stream.QMX_HTTP_PredictTransFileSize(), 0); });
  With(FilmRecord("", "vb1000_ab128"),
       [](HttpStream& stream) { EXPECT_EQ(stream.ConvertByteRangeToTimeRange(1000), -1); });
}

TEST_F(HttpArithmetic, ArgumentsAreEmptyWithoutAProfileOrAPicture) {
  With(FilmRecord(""), [](HttpStream& stream) {
    EXPECT_EQ(stream.CalculateFFmpegArgument(), List{});
    EXPECT_EQ(stream.CalculateGstreamerArgument(), List{});
  });
  With(Shaped(0, 1080),
       [](HttpStream& stream) { EXPECT_EQ(stream.CalculateFFmpegArgument(), List{}); });
  With(FilmRecord(" -a \n-b  c\n"), [](HttpStream& stream) {
    EXPECT_EQ(stream.CalculateFFmpegArgument(), (List{"-a", "-b", "c"}));
    EXPECT_EQ(stream.CalculateGstreamerArgument(), (List{"-a", "\n-b", "c\n"}));
  });
}

class HttpProcess : public test::StreamTest {};

TEST_F(HttpProcess, MapsNoMediaLibraryUntilItProbes) {
  // A fresh program: an earlier test in this one may have probed.
  constexpr char kFresh[] = "ORVO_TEST_FRESH";
  if (std::getenv(kFresh) == nullptr) {
    setenv(kFresh, "1", 1);
    EXPECT_EQ(PlatExec("/proc/self/exe", "--gtest_filter=HttpProcess.*"), 0);
    unsetenv(kFresh);
    return;
  }
  MakeStream("HTTP", FilmRecord("x"));
  const HttpStream stream(kId);
  const LibMirevo::TransLoading registry;
  const std::string maps = test::ReadWhole("/proc/self/maps");
  EXPECT_NE(maps.find("liborvoqmx"), std::string::npos);
  for (const char* library : {"libavformat", "libavcodec", "libavutil", "libcrypto"}) {
    EXPECT_EQ(maps.find(library), std::string::npos) << library;
  }
}

class FilmHttp : public test::StreamTest {};

TEST_F(FilmHttp, IsCarriedThroughARealTranscoder) {
  // A profile of the stock program, which does without this system's own options.
  On("avoton", [this] {
    Write(
        "/profiles",
        R"({"key": "-loglevel fatal -frames:v 10 -shortest -c:v mpeg4 -s hd480 -c:a copy -t 40 -f matroska"})");
    LibOrvoQMX::QMXInitArgument argument(test::Film("h264_ac3.mkv"), "HTTP", Path("/profiles"),
                                         "key");
    const std::string id = LibOrvoQMX::QMXStream::QMX_Init(argument);
    ASSERT_EQ(id.size(), 41U);
    HttpStream stream(id);
    ASSERT_TRUE(stream.Init(""));
    const pid_t self = getpid();
    const bool started = stream.Transcoding("/usr/bin/ffmpeg", 30);
    if (getpid() != self) {
      _exit(1);
    }
    ASSERT_TRUE(started);
    std::string film;
    char buffer[65536];
    for (int count = 0; (count = stream.Read(buffer, sizeof(buffer))) > 0;) {
      film.append(buffer, static_cast<size_t>(count));
    }
    EXPECT_TRUE(stream.Close());
    test::ReapAll();
    Write("/out.mkv", film);
    LibOrvoQMX::VideoMetaData metadata;
    ASSERT_TRUE(metadata.LoadFile(Path("/out.mkv"))) << film.size();
    EXPECT_EQ(metadata.GetVideoCodecName(), "mpeg4");
    EXPECT_EQ(metadata.GetVideoResolutionX(), 852U);
    EXPECT_EQ(metadata.GetAudioCodecName(), "ac3");
  });
}

}  // namespace
