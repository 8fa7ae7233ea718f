// The processes of an HLS stream, with scripts in the transcoders' places.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <poll.h>

#include <algorithm>
#include <csignal>
#include <ctime>
#include <memory>
#include <optional>

#include "platform/plat.h"
#include "support/hls.h"
#include "support/log_capture.h"
#include "support/processes.h"
#include "support/stand_in.h"
#include "util/qmxutils.h"

namespace {

using LibOrvoQMX::HttpLiveStream;
using test::Child;
using test::FilmRecord;
using test::kFfmpeg;
using test::kId;
using test::kRemuxProfile;
using test::kStandIn;
using test::kTranscodeProfile;
using test::Pipe;
using List = std::vector<std::string>;

constexpr char kWrapper[] = "/var/packages/Mirevo/target/bin/orvo-gst";

class HlsPipeline : public test::HlsTest {
 protected:
  void SetUp() override {
    HlsTest::SetUp();
    WriteScript(kFfmpeg, kStandIn);
    standIn_.emplace(Root());
  }

  pid_t NextStarted() const { return standIn_->NextStarted(); }
  List Arguments(pid_t pid) const { return standIn_->Arguments(pid); }
  static bool IsRunning(pid_t pid) { return PlatProcAlive(pid); }

  // A request in a process of its own.
  bool Request(const std::string& fragment) const {
    Child request([&] { EXPECT_TRUE(HttpLiveStream(kId).Transcoding(fragment)); });
    return request.Wait() == 0;
  }
  pid_t Monitor() const { return std::stoi(Read(File("monitor.pid"))); }

  // A monitor whose end `check` looks at; SIGTERM stops it.
  std::unique_ptr<Child> StartMonitor(const std::function<void()>& check) const {
    return std::make_unique<Child>([=] {
      signal(SIGTERM, HttpLiveStream::MointerSignalHandler);
      HttpLiveStream(kId).ExecuteMointer("0");
      check();
    });
  }

  std::optional<test::StandIn> standIn_;
};

class HlsArguments : public HlsPipeline {
 protected:
  List Calculate(const Json::Value& record, const std::string& fragment = "3",
                 const std::string& format = "") const {
    MakeStream("HLS", record);
    if (!format.empty()) {
      Write(File("audio_format"), format);
    }
    return HttpLiveStream(kId).CalculateFFmpegArgument(fragment);
  }
  // The audio encoder that is asked for.
  std::string AudioOf(const Json::Value& record, const std::string& format) const {
    const List arguments = Calculate(record, "3", format);
    const auto option = std::find(arguments.begin(), arguments.end(), "-acodec");
    return option == arguments.end() ? "(none)" : *(option + 1);
  }
};

TEST_F(HlsArguments, HaveAFixedOrder) {
  On("avoton", [this] {
    // No seek has been made: the delta is the whole way back to 0.
    EXPECT_EQ(Calculate(FilmRecord("-vcodec x\n-acodec y")), (List{"-vcodec",
                                                                   "x",
                                                                   "-acodec",
                                                                   "y",
                                                                   "-segment_format",
                                                                   "mpegts",
                                                                   "-segment_list_type",
                                                                   "m3u8",
                                                                   "-hls_seek_time",
                                                                   "0",
                                                                   "-segment_time",
                                                                   "5",
                                                                   "-segment_time_delta",
                                                                   "-15.000",
                                                                   "-segment_start_number",
                                                                   "3",
                                                                   "-individual_header_trailer",
                                                                   "0",
                                                                   "-avoid_negative_ts",
                                                                   "0",
                                                                   "-break_non_keyframes",
                                                                   "1"}));
  });
}

TEST_F(HlsArguments, AskForPlainPixelsUnlessVideoIsCopied) {
  On("avoton", [this] {
    Json::Value record = FilmRecord("-vcodec x");
    record["track_info"]["video"][0]["pix_fmt"] = "yuv420p10le";
    List arguments = Calculate(record);
    EXPECT_EQ(List(arguments.begin() + 2, arguments.begin() + 4), (List{"-pix_fmt", "yuv420p"}));
    record["profile_value"] = kRemuxProfile;
    arguments = Calculate(record);
    EXPECT_EQ(std::count(arguments.begin(), arguments.end(), "-pix_fmt"), 0);
    EXPECT_EQ(*(std::find(arguments.begin(), arguments.end(), "-segment_time") + 1), "8");
  });
}

TEST_F(HlsArguments, LeaveHeadersToTheSegmentsIfTheRecordSaysSo) {
  On("avoton", [this] {
    Json::Value record = FilmRecord("x");
    record["hls_header"] = true;
    const List arguments = Calculate(record);
    EXPECT_EQ(std::count(arguments.begin(), arguments.end(), "-individual_header_trailer"), 0);
  });
}

TEST_F(HlsArguments, CutAtKeyFramesWhereTheyAreKnown) {
  On("avoton", [this] {
    Json::Value record = FilmRecord(kRemuxProfile);
    record["path"] = Path("/volume1/film.mkv");
    record["use_pre_analysis"] = true;
    EXPECT_EQ(Calculate(record).back(), "1");
    StoreKeyframes(Path("/volume1/film.mkv"), {0, 9, 20}, 26);
    EXPECT_EQ(Calculate(record).back(), "0");
  });
}

TEST_F(HlsArguments, ChooseTheAudio) {
  On("avoton", [this] {
    const Json::Value ac3 = FilmRecord("-acodec profile");
    EXPECT_EQ(AudioOf(ac3, ""), "profile");
    EXPECT_EQ(AudioOf(ac3, "ac3_copy"), "copy");
    EXPECT_NE(AudioOf(ac3, "aac"), "profile");
    EXPECT_NE(AudioOf(ac3, "mp3"), AudioOf(ac3, "aac"));
    Json::Value chromecast = ac3;
    chromecast["device"] = "chromecast";
    EXPECT_EQ(AudioOf(chromecast, "ac3_copy"), AudioOf(ac3, "aac"));
    Json::Value aac = ac3;
    aac["track_info"]["audio"][0] =
        test::ParseText(R"({"codec": "aac", "profile": "LC", "id": "1"})");
    EXPECT_EQ(AudioOf(aac, "aac"), "copy");
    EXPECT_EQ(AudioOf(aac, "mp3"), AudioOf(ac3, "mp3"));
    aac["track_info"]["audio"][0]["profile"] = "HE-AAC";
    EXPECT_EQ(AudioOf(aac, "aac"), AudioOf(ac3, "aac"));
  });
}

TEST_F(HlsArguments, AreEmptyWithoutAPictureAProfileOrAFragment) {
  On("avoton", [this] {
    Json::Value record = FilmRecord("x");
    EXPECT_EQ(Calculate(record, ""), List());
    record["track_info"]["video"][0]["resolutionx"] = 0;
    EXPECT_EQ(Calculate(record), List());
    EXPECT_EQ(Calculate(FilmRecord("")), List());
    EXPECT_EQ(HttpLiveStream(kId).CalculateGstreamerArgument(), List());
    MakeStream("HLS", FilmRecord("--vcodec h264  --acodec"));
    EXPECT_EQ(HttpLiveStream(kId).CalculateGstreamerArgument(),
              (List{"--vcodec", "h264", "--acodec"}));
  });
}

TEST_F(HlsPipeline, StartsATranscoderAtTheSegment) {
  On("avoton", [this] {
    Open(kTranscodeProfile);
    ASSERT_TRUE(Request("3"));
    const pid_t transcoder = NextStarted();
    const List arguments = Arguments(transcoder);
    EXPECT_EQ(List(arguments.begin(), arguments.begin() + 6),
              (List{"-ss", "15.000", "-i", "/volume1/video/film.mkv", "-vcodec", "libx264"}));
    const auto seek = std::find(arguments.begin(), arguments.end(), "-hls_seek_time");
    EXPECT_EQ(List(seek, seek + 8),
              (List{"-hls_seek_time", "15000", "-segment_time", "5", "-segment_time_delta", "0.000",
                    "-segment_start_number", "3"}));
    EXPECT_EQ(List(arguments.end() - 5, arguments.end()),
              (List{"-map", "0:0", "-map", "0:1", Path(File("slice-%05d.ts"))}));
    EXPECT_EQ(Read(File("seek_time")), "3");
    EXPECT_TRUE(IsRunning(Monitor()));
    EXPECT_EQ(Registry(), test::JsonArray({test::RegistryEntry(transcoder, false)}));

    EXPECT_TRUE(HttpLiveStream(kId).Close());
    test::ReapAll();
    EXPECT_FALSE(IsRunning(transcoder));
    EXPECT_FALSE(Exists(Directory("HLS")));
  });
}

TEST_F(HlsPipeline, TellsItsCommandLineBeforeItIsOpened) {
  On("avoton", [this] {
    const Json::Value record = FilmRecord(kTranscodeProfile);
    const auto plan = LibOrvoQMX::QMXMetaData::Plan(Load(record), "key", kTranscodeProfile, "");
    List expected = HttpLiveStream(plan).CommandLine("3", Path(Directory("HLS")));
    ASSERT_FALSE(expected.empty());
    EXPECT_EQ(expected.front(), Path(kFfmpeg));
    EXPECT_FALSE(Exists(Directory("HLS"))) << "and makes nothing";

    Open(kTranscodeProfile);
    ASSERT_TRUE(Request("3"));
    expected.erase(expected.begin());
    EXPECT_EQ(Arguments(NextStarted()), expected);
    EXPECT_TRUE(HttpLiveStream(kId).Close());
    test::ReapAll();
  });
}

TEST_F(HlsPipeline, KeepsATranscoderThatWillReachTheFragmentSoon) {
  On("avoton", [this] {
    Open(kRemuxProfile);
    ASSERT_TRUE(Request("3"));
    const pid_t transcoder = NextStarted();
    const std::string sequence = Read(File("request_sequence"));
    for (const char* fragment : {"3", "7"}) {
      ASSERT_TRUE(Request(fragment));
    }
    EXPECT_EQ(Read(File("request_sequence")), sequence);
    EXPECT_TRUE(IsRunning(transcoder));
    EXPECT_EQ(Registry(), Json::Value()) << "a remux is no load";
    // A far one replaces it, and takes its segments away.
    Write(Slice(3), "x");
    const pid_t monitor = Monitor();
    ASSERT_TRUE(Request("8"));
    const pid_t next = NextStarted();
    EXPECT_FALSE(IsRunning(transcoder));
    EXPECT_FALSE(IsRunning(monitor));
    EXPECT_TRUE(IsRunning(next));
    EXPECT_FALSE(Exists(Slice(3)));
    HttpLiveStream(kId).Close();
    test::ReapAll();
  });
}

TEST_F(HlsPipeline, EndsWithASignalToTheMonitor) {
  On("avoton", [this] {
    Open(kTranscodeProfile);
    for (const int number : {SIGTERM, SIGINT}) {
      ASSERT_TRUE(Request("3"));
      const pid_t transcoder = NextStarted();
      const double start = test::Now();
      kill(Monitor(), number);
      test::ReapAll();
      EXPECT_LT(test::Now() - start, 0.9);
      EXPECT_FALSE(IsRunning(transcoder));
      EXPECT_EQ(Registry(), Json::Value(Json::arrayValue));
      unlink(Path(File("seek_time")).c_str());
    }
  });
}

TEST_F(HlsPipeline, EndsWithTheMonitorHoweverTheMonitorEnds) {
  On("avoton", [this] {
    Open(kTranscodeProfile);
    ASSERT_TRUE(Request("3"));
    const pid_t transcoder = NextStarted();
    kill(Monitor(), SIGKILL);
    test::ReapAll();
    EXPECT_FALSE(IsRunning(transcoder));
  });
}

TEST_F(HlsPipeline, EndsWithTheMonitorAsAnotherUser) {
  On("avoton", [this] {
    if (getuid() != 0) {
      GTEST_SKIP() << "needs root";
    }
    Open(kTranscodeProfile);
    ASSERT_EQ(chmod(Path("/started").c_str(), 0666), 0);
    Child request([&] {
      ASSERT_EQ(system(("chmod -R a+rwX " + Root()).c_str()), 0);
      ASSERT_EQ(seteuid(65534), 0);
      EXPECT_TRUE(HttpLiveStream(kId).Transcoding("3"));
    });
    ASSERT_EQ(request.Wait(), 0);
    const pid_t transcoder = NextStarted();
    kill(Monitor(), SIGKILL);
    test::ReapAll();
    EXPECT_FALSE(IsRunning(transcoder));
  });
}

TEST_F(HlsPipeline, KillsATranscoderThatWillNotEnd) {
  On("avoton", [this] {
    Open(kTranscodeProfile);
    WriteScript(kFfmpeg, std::string("trap '' INT\n") + kStandIn);
    Pipe log;
    const auto monitor = StartMonitor([&] {
      for (const std::string& line : test::TakeLogTexts()) {
        log.Write(line + "\n");
      }
    });
    const pid_t transcoder = NextStarted();
    monitor->Kill(SIGTERM);
    EXPECT_EQ(log.ReadToEnd(), "http_live_stream:N Force Kill Transcoding Process " +
                                   std::to_string(transcoder) + "\n");
    EXPECT_EQ(monitor->Wait(), 0);
    EXPECT_FALSE(IsRunning(transcoder));
    EXPECT_EQ(Registry(), Json::Value(Json::arrayValue));
  });
}

TEST_F(HlsPipeline, EndsWithTheTranscoder) {
  On("avoton", [this] {
    Open(kTranscodeProfile);
    ASSERT_TRUE(Request("3"));
    const pid_t transcoder = NextStarted();
    Write(Slice(3), "x");
    Child request([&] { EXPECT_EQ(HttpLiveStream(kId).ReadFragment("3"), Path(Slice(3))); });
    kill(transcoder, SIGKILL);
    EXPECT_EQ(request.Wait(), 0);
    test::ReapAll();
    EXPECT_EQ(Registry(), Json::Value(Json::arrayValue));
  });
}

TEST_F(HlsPipeline, EndsWhenTheClientHasGone) {
  On("avoton", [this] {
    Open(kTranscodeProfile);
    Write(File("access_status"), "");
    const timespec times[2] = {{0, UTIME_OMIT}, {time(nullptr) - 900, 0}};
    ASSERT_EQ(utimensat(AT_FDCWD, Path(File("access_status")).c_str(), times, 0), 0);
    WriteScript(kFfmpeg, "exec sleep 1000\n");
    const auto monitor = StartMonitor([] {
      EXPECT_EQ(test::TakeLogTexts(), List{"http_live_stream:N time out for access [900 seconds]"});
    });
    EXPECT_EQ(monitor->Wait(), 0);
    EXPECT_FALSE(Exists(Directory("HLS")));
  });
}

TEST_F(HlsPipeline, StartsNothingWithoutAPictureOrBeyondThePlan) {
  On("avoton", [this] {
    Json::Value record = FilmRecord(kTranscodeProfile);
    record["track_info"]["video"][0]["resolutionx"] = 0;
    Open(record);
    ASSERT_TRUE(Request("3"));
    test::ReapAll();
    Json::Value remux = FilmRecord(kRemuxProfile);
    remux["path"] = Path("/volume1/film.mkv");
    remux["use_pre_analysis"] = true;
    StoreKeyframes(Path("/volume1/film.mkv"), {0, 9, 20}, 26);
    WriteJson(File("video_metadata"), remux);
    for (const char* fragment : {"9", "-1", "x", "99999999999"}) {
      ASSERT_TRUE(Request(fragment));
      test::ReapAll();
      unlink(Path(File("seek_time")).c_str());
    }
    // Nobody has announced itself.
    EXPECT_FALSE(standIn_->HasStarted());
    for (const char* text : {"", "x"}) {
      EXPECT_THROW(HttpLiveStream(kId).ExecuteMointer(text), std::invalid_argument);
    }
    EXPECT_THROW(HttpLiveStream(kId).ExecuteMointer("99999999999"), std::out_of_range);
  });
}

TEST_F(HlsPipeline, FailsWithoutAStream) {
  On("avoton", [this] {
    Open(kTranscodeProfile);
    EXPECT_FALSE(HttpLiveStream("").Transcoding("3"));
    EXPECT_FALSE(HttpLiveStream("unknown").Transcoding("3"));
    EXPECT_FALSE(HttpLiveStream(kId).Transcoding(""));
  });
}

TEST_F(HlsPipeline, TellsTheClientSoonThatTheTranscoderFailed) {
  On("avoton", [this] {
    Open(kTranscodeProfile);
    WriteScript(kFfmpeg, "exit 1\n");
    Child request([] {
      HttpLiveStream stream(kId);
      EXPECT_TRUE(stream.Transcoding("3"));
      EXPECT_EQ(stream.ReadFragment("3"), "");
    });
    const double start = test::Now();
    EXPECT_EQ(request.Wait(), 0);
    EXPECT_LT(test::Now() - start, 10);
    test::ReapAll();
  });
}

TEST_F(HlsPipeline, DoesNotKeepTheRequestsClientWaiting) {
  On("avoton", [this] {
    Open(kTranscodeProfile);
    Pipe output;
    Child request([&] {
      dup2(output.WriteEnd(), STDOUT_FILENO);
      dup2(output.WriteEnd(), STDERR_FILENO);
      output.CloseWrite();
      HttpLiveStream(kId).Transcoding("3");
    });
    NextStarted();
    EXPECT_EQ(output.ReadToEnd(), "");
    EXPECT_TRUE(IsRunning(Monitor()));
    EXPECT_EQ(request.Wait(), 0);
    HttpLiveStream(kId).Close();
    test::ReapAll();
  });
}

TEST_F(HlsPipeline, FollowsTheNewestOfManyRequestsAtOnce) {
  On("avoton", [this] {
    Open(kTranscodeProfile);
    const double start = test::Now();
    // Each writes the number of its segment and its sequence once it has asked.
    std::vector<std::unique_ptr<Child>> requests;
    Pipe answers;
    for (int i = 0; i < 8; ++i) {
      requests.push_back(std::make_unique<Child>([&, i] {
        const std::string fragment = std::to_string(100 * i);
        HttpLiveStream stream(kId);
        EXPECT_TRUE(stream.Transcoding(fragment));
        const std::string path = stream.ReadFragment(fragment);
        if (!path.empty()) {
          answers.Write(fragment + "\n");
        }
      }));
    }
    // Requests that were overtaken come back; the newest waits for its segment, which is written
    // here once a transcoder works for it.
    pid_t last = 0;
    int number = -1;
    for (bool isServed = false; !isServed;) {
      last = NextStarted();
      const List arguments = Arguments(last);
      number =
          std::stoi(*(std::find(arguments.begin(), arguments.end(), "-segment_start_number") + 1));
      const auto finished = [&] {
        return std::count_if(requests.begin(), requests.end(), [](const auto& request) {
          siginfo_t info{};
          waitid(P_PID, static_cast<id_t>(request->Pid()), &info, WEXITED | WNOHANG | WNOWAIT);
          return info.si_pid != 0;
        });
      };
      while (IsRunning(last) && finished() < 7) {
        poll(nullptr, 0, 1);
      }
      if (IsRunning(last)) {
        Write(Slice(number), "x");
        Write(Slice(number + 1), "x");
        isServed = true;
      }
    }
    for (const auto& request : requests) {
      EXPECT_EQ(request->Wait(), 0);
    }
    EXPECT_LT(test::Now() - start, 20);
    EXPECT_EQ(Registry(), test::JsonArray({test::RegistryEntry(last, false)}));
    EXPECT_EQ(Read(File("seek_time")), std::to_string(number));
    HttpLiveStream(kId).Close();
    test::ReapAll();
    EXPECT_FALSE(IsRunning(last));
    // The monitors, whose ends these were too, are gone.
    EXPECT_EQ(answers.ReadToEnd(), std::to_string(number) + "\n");
  });
}

TEST_F(HlsPipeline, KnowsHowAppleTvResumes) {
  On("avoton", [this] {
    Open(kRemuxProfile);
    Write(File("appletv_status"), "Init");
    ASSERT_TRUE(Request("30"));
    const pid_t transcoder = NextStarted();
    EXPECT_EQ(Read(File("appletv_status")), "Resume");
    ASSERT_TRUE(Request("0"));
    EXPECT_EQ(Read(File("appletv_status")), "");
    EXPECT_TRUE(Exists(File("appletv_status")));
    EXPECT_TRUE(IsRunning(transcoder));
    EXPECT_EQ(Read(File("seek_time")), "30");
    // Once only.
    ASSERT_TRUE(Request("0"));
    NextStarted();
    EXPECT_FALSE(IsRunning(transcoder));
    HttpLiveStream(kId).Close();
    test::ReapAll();
  });
}

TEST_F(HlsPipeline, OfTheWrapperHasASegmenterAtItsEnd) {
  Open("--vcodec h264 --vb 2000k --acodec aac");
  // The wrapper writes into what "-o fd:N" names, the segmenter reads what "-i pipe:N" names.
  WriteScript(kWrapper,
              "printf '%s\\n' \"$@\" > \"$ORVO_SYSROOT/argv.wrapper\"\n"
              "while [ \"$1\" != -o ]; do shift; done\n"
              "eval \"echo film >&${2#fd:}\"\n");
  WriteScript(kFfmpeg,
              "printf '%s\\n' \"$@\" > \"$ORVO_SYSROOT/argv.segmenter\"\n"
              "eval \"cat <&${2#pipe:}\" > \"$ORVO_SYSROOT/film\"\n"
              "echo 1 > \"$ORVO_SYSROOT/started\"\n");
  On("braswell", [this] {
    EXPECT_TRUE(HttpLiveStream(kId).Transcoding("3"));
    NextStarted();
    test::ReapAll();
  });
  EXPECT_EQ(Read("/film"), "film\n");
  const List wrapper = LibOrvoQMX::StringExplode(Read("/argv.wrapper"), "\n");
  EXPECT_EQ(List(wrapper.begin(), wrapper.begin() + 4),
            (List{"-s", "15", "-i", "/volume1/video/film.mkv"}));
  EXPECT_EQ(std::count(wrapper.begin(), wrapper.end(), "--shiftpts"), 0);
  const List segmenter = LibOrvoQMX::StringExplode(Read("/argv.segmenter"), "\n");
  EXPECT_EQ(
      List(segmenter.begin() + 2, segmenter.end()),
      (List{"-map", "0", "-codec", "copy", "-f", "segment", "-segment_time", "5",
            "-segment_start_number", "3", "-hls_seek_time", "15000", Path(File("slice-%05d.ts"))}));
  EXPECT_EQ(Registry(), Json::Value(Json::arrayValue));
}

TEST_F(HlsPipeline, OfAWrapperThatFailsLetsTheSegmenterSeeNoEnd) {
  Open("--vcodec h264 --acodec aac");
  WriteScript(kWrapper, "exit 1\n");
  // At the end of its input it would finish the segment; after a signal it discards it.
  WriteScript(kFfmpeg,
              "trap 'echo stopped > \"$ORVO_SYSROOT/segmenter\"; exit 0' INT\n"
              "eval \"exec <&${2#pipe:}\"\n"
              "while read -r line; do :; done\n"
              "echo finished > \"$ORVO_SYSROOT/segmenter\"\n");
  On("braswell", [] {
    EXPECT_TRUE(HttpLiveStream(kId).Transcoding("3"));
    test::ReapAll();
  });
  EXPECT_NE(Read("/segmenter"), "finished\n");
}

TEST_F(HlsPipeline, OfTheWrapperEndsWithASignalToTheMonitor) {
  Open("--vcodec h264 --acodec aac");
  WriteScript(kWrapper, kStandIn);
  On("braswell", [this] {
    EXPECT_TRUE(HttpLiveStream(kId).Transcoding("3"));
    const pid_t one = NextStarted();
    const pid_t other = NextStarted();
    kill(Monitor(), SIGTERM);
    test::ReapAll();
    EXPECT_FALSE(IsRunning(one) || IsRunning(other));

    unlink(Path(File("seek_time")).c_str());
    EXPECT_TRUE(HttpLiveStream(kId).Transcoding("3"));
    NextStarted();
    NextStarted();
    kill(Monitor(), SIGKILL);
    test::ReapAll();
  });
}

}  // namespace
