// Command lines of the transcoders, as a small program that takes their place gets them.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <memory>

#include "platform/plat.h"
#include "support/log_capture.h"
#include "support/processes.h"
#include "support/streams.h"

namespace {

using test::Child;
using test::FilmRecord;
using test::JsonArray;
using test::Pipe;
using test::PlainStream;
using test::RegistryEntry;
using List = std::vector<std::string>;

constexpr char kSource[] = "/volume1/video/film.mkv";

class Launch : public test::StreamTest {
 protected:
  void SetUp() override {
    StreamTest::SetUp();
    program_ =
        WriteScript("/transcoder", "printf '%s\\n' \"$0\" \"$@\" > \"$ORVO_SYSROOT/argv\"\n");
  }

  // The lines of a text.
  static List Lines(const std::string& text) {
    List lines;
    for (size_t start = 0; start < text.size();) {
      const size_t end = text.find('\n', start);
      lines.push_back(text.substr(start, end - start));
      start = end == std::string::npos ? text.size() : end + 1;
    }
    return lines;
  }

  // The command line without the program, of a stream of this kind on this platform.
  List Transcode(const std::string& platform, const std::string& kind, const Json::Value& record,
                 const std::function<void(PlainStream&)>& launch) const {
    unlink(Path("/argv").c_str());
    MakeStream(kind, record);
    SetPlatform(platform);
    Child child([&] {
      PlainStream stream(kind);
      launch(stream);
      _exit(77);  // it came back
    });
    status_ = child.Wait();
    List argv = Lines(Read("/argv"));
    if (argv.empty()) {
      return {"(not started)"};
    }
    EXPECT_EQ(argv.front(), program_);
    argv.erase(argv.begin());
    return argv;
  }

  std::string program_;
  mutable int status_ = 0;
};

TEST_F(Launch, OfFfmpegPutsTheArgumentsInOrder) {
  const auto start = [this](PlainStream& stream) {
    stream.start = 83250;
    stream.ExecuteTranscoding(true, {"-vcodec", "libx264", ""}, "out put", program_);
  };
  EXPECT_EQ(Transcode("avoton", "HTTP", FilmRecord("x"), start),
            (List{"-ss", "83.250", "-copyts", "-i", kSource, "-vcodec", "libx264", "", "-map",
                  "0:0", "-map", "0:1", "out put"}));
  EXPECT_EQ(status_, 0);
}

TEST_F(Launch, OfFfmpegWritesTheStartWithThreeDecimals) {
  const struct {
    int milliseconds;
    const char* text;
  } rows[] = {{0, "0.000"}, {999, "0.999"}, {1000, "1.000"}, {2147483647, "2147483.647"}};
  for (const auto& row : rows) {
    const List argv = Transcode("avoton", "HTTP", FilmRecord("x"), [&](PlainStream& stream) {
      stream.start = row.milliseconds;
      stream.ExecuteTranscoding(false, {}, "o", program_);
    });
    EXPECT_EQ(argv, (List{"-ss", row.text, "-i", kSource, "-map", "0:0", "-map", "0:1", "o"}));
  }
}

TEST_F(Launch, OfFfmpegPrefersTheHardwareDecoderOnlyIfItWorks) {
  const auto start = [this](PlainStream& stream) {
    stream.ExecuteTranscoding(false, {}, "o", program_);
  };
  const auto isPreferred = [&](const std::string& platform, const Json::Value& record) {
    const List argv = Transcode(platform, "HTTP", record, start);
    EXPECT_GT(argv.size(), 3U);
    return argv.size() > 2 && argv[2] == "-prefer_smd";
  };
  EXPECT_TRUE(isPreferred("evansport", FilmRecord("h264_smd")));
  EXPECT_TRUE(isPreferred("braswell", FilmRecord("--acodec")));
  EXPECT_FALSE(isPreferred("braswell", FilmRecord("h264_vaapi")));
  EXPECT_FALSE(isPreferred("avoton", FilmRecord("h264_smd")));
  Json::Value flash = FilmRecord("h264_smd");
  flash["container_type"] = "flv";
  EXPECT_FALSE(isPreferred("evansport", flash));
  Json::Value turned = FilmRecord("h264_smd");
  turned["track_info"]["video"][0]["rotate"] = 180;
  EXPECT_FALSE(isPreferred("evansport", turned));
}

TEST_F(Launch, OfFfmpegMapsTheRequestedTrack) {
  MakeDirectory(Directory("HTTP"));
  Write(Directory("HTTP") + "/audio_id", "2");
  EXPECT_EQ(Transcode("avoton", "HTTP", FilmRecord("x"),
                      [this](PlainStream& stream) {
                        stream.ExecuteTranscoding(false, {}, "o", program_);
                      }),
            (List{"-ss", "0.000", "-i", kSource, "-map", "0:0", "-map", "0:2", "o"}));
}

TEST_F(Launch, WithoutAMappingIsAFailureForHlsOnly) {
  Json::Value record = FilmRecord("x");
  record["track_info"]["audio"] = Json::Value(Json::arrayValue);
  const auto start = [this](PlainStream& stream) {
    EXPECT_FALSE(stream.ExecuteTranscoding(false, {}, "o", program_));
    EXPECT_EQ(test::TakeLogTexts(), List{"liborvoqmx:N QMX - Fail GetVideoAudioMap."});
    _exit(HasFailure() ? 1 : 55);
  };
  EXPECT_EQ(Transcode("avoton", "HTTP", record, start), (List{"-ss", "0.000", "-i", kSource, "o"}));
  EXPECT_EQ(Transcode("avoton", "HLS", record, start), List{"(not started)"});
  EXPECT_EQ(status_, 55);
}

TEST_F(Launch, RegistersTheTranscoderUnderThePidItKeeps) {
  const std::string program =
      WriteScript("/keeper",
                  "cat \"$ORVO_SYSROOT/tmp/Mirevo/enabled\" > \"$ORVO_SYSROOT/seen\"\n"
                  "echo $$ > \"$ORVO_SYSROOT/pid\"\n");
  for (const bool hardware : {false, true}) {
    Transcode("braswell", "HTTP", FilmRecord(hardware ? "h264_vaapi" : "x"),
              [&](PlainStream& stream) { stream.ExecuteTranscoding(false, {}, "o", program); });
    const int pid = std::stoi(Read("/pid"));
    EXPECT_EQ(ReadJson("/seen"), JsonArray({RegistryEntry(pid, hardware)}));
  }
}

TEST_F(Launch, OfARemuxIsNotRegistered) {
  SetRegistry(JsonArray({RegistryEntry(getpid(), false)}));
  const std::string before = Read("/tmp/Mirevo/enabled");
  EXPECT_EQ(Transcode("avoton", "HTTP", FilmRecord("h264_mp4toannexb"),
                      [this](PlainStream& stream) {
                        stream.ExecuteTranscoding(false, {}, "o", program_);
                      })
                .size(),
            9U);
  EXPECT_EQ(Read("/tmp/Mirevo/enabled"), before);
}

TEST_F(Launch, IsRefusedWithoutRoom) {
  SetRegistry(JsonArray({RegistryEntry(getpid(), false)}));
  const auto start = [this](PlainStream& stream) {
    EXPECT_FALSE(stream.ExecuteTranscoding(false, {}, "o", program_));
    EXPECT_FALSE(stream.ExecuteGstreamerTranscoding("o", {}, program_, false));
    EXPECT_EQ(test::TakeLogTexts(), List(2, "liborvoqmx:N QMX - TransEnable Failed."));
    _exit(HasFailure() ? 1 : 55);
  };
  EXPECT_EQ(Transcode("avoton", "HTTP", FilmRecord("x"), start), List{"(not started)"});
  EXPECT_EQ(status_, 55);
}

TEST_F(Launch, FailsBeforeItRegistersWhenSomethingIsMissing) {
  On("avoton", [this] {
    const auto refuses = [](PlainStream& stream, const std::string& program) {
      EXPECT_FALSE(stream.ExecuteTranscoding(false, {}, "o", program));
      EXPECT_FALSE(stream.ExecuteGstreamerTranscoding("o", {}, program, false));
    };
    PlainStream unloaded("HTTP");
    refuses(unloaded, program_);
    MakeStream("HTTP", FilmRecord("x"));
    PlainStream negative("HTTP");
    negative.start = -1;
    refuses(negative, program_);
    PlainStream noProgram("HTTP");
    refuses(noProgram, "");
    Json::Value record = FilmRecord("x");
    record.removeMember("path");
    MakeStream("HTTP", record);
    PlainStream noFile("HTTP");
    refuses(noFile, program_);
    MakeStream("HTTP", FilmRecord(""));
    PlainStream noProfile("HTTP");
    refuses(noProfile, program_);
    EXPECT_FALSE(Exists("/tmp/Mirevo/enabled"));
    EXPECT_FALSE(Exists("/argv"));
  });
}

TEST_F(Launch, ReturnsFalseWhenTheProgramIsMissing) {
  On("avoton", [this] {
    MakeStream("HTTP", FilmRecord("x"));
    PlainStream stream("HTTP");
    EXPECT_FALSE(stream.ExecuteTranscoding(false, {}, "o", Path("/missing")));
    EXPECT_EQ(Registry(), JsonArray({RegistryEntry(getpid(), false)}));
  });
}

TEST_F(Launch, RunsTheTranscoderAsRootAndDropsRootOnFailure) {
  if (geteuid() != 0) {
    GTEST_SKIP() << "needs root";
  }
  MakeStream("HTTP", FilmRecord("h264_mp4toannexb"));
  Write("/private/transcoder", "#!/bin/sh\nexit 44\n");
  ASSERT_EQ(chmod(Path("/private/transcoder").c_str(), 0700), 0);
  ASSERT_EQ(chmod(Path("/private").c_str(), 0700), 0);
  Child child([&] {
    ASSERT_EQ(setresuid(65534, 65534, 0), 0);
    PlainStream stream("HTTP");
    EXPECT_FALSE(stream.ExecuteTranscoding(false, {}, "o", Path("/private/missing")));
    EXPECT_EQ(geteuid(), 65534U);
    ASSERT_FALSE(HasFailure());
    // Only root may run it. The shell that reads it then has no more rights than the caller.
    stream.ExecuteTranscoding(false, {}, "o", Path("/private/transcoder"));
  });
  const int status = child.Wait();
  EXPECT_TRUE(status == 44 || status == 2 || status == 126 || status == 127) << status;
}

TEST_F(Launch, StartsOneOfManyAtTheSameTime) {
  constexpr int kLaunches = 12;
  MakeStream("HTTP", FilmRecord("x"));
  const std::string program = WriteScript("/winner",
                                          "for out; do :; done\n"
                                          "printf 1 > /dev/fd/\"$out\"\n"
                                          "exec sleep 1000\n");
  Pipe start;
  Pipe outcome;
  std::vector<std::unique_ptr<Child>> children;
  for (int i = 0; i < kLaunches; ++i) {
    children.push_back(std::make_unique<Child>([&] {
      fcntl(outcome.WriteEnd(), F_SETFD, 0);
      start.CloseWrite();
      start.Read(1);
      PlainStream stream("HTTP");
      EXPECT_FALSE(
          stream.ExecuteTranscoding(false, {}, std::to_string(outcome.WriteEnd()), program));
      outcome.Write("0");
    }));
  }
  start.CloseWrite();
  const std::string answers = outcome.Read(kLaunches);
  EXPECT_EQ(std::count(answers.begin(), answers.end(), '1'), 1) << answers;
}

TEST_F(Launch, OfTheWrapperPutsTheArgumentsInOrder) {
  EXPECT_EQ(
      Transcode("braswell", "HTTP", FilmRecord("--acodec"),
                [this](PlainStream& stream) {
                  stream.start = 83250;
                  stream.ExecuteGstreamerTranscoding("fd:7", {"--vb", "1000"}, program_, true);
                }),
      (List{"-s", "83", "-i", kSource, "--vb", "1000", "--shiftpts", "-o", "fd:7", "--aidx", "0"}));
  EXPECT_EQ(Transcode("braswell", "HTTP", FilmRecord("--acodec"),
                      [this](PlainStream& stream) {
                        stream.start = 999;
                        stream.ExecuteGstreamerTranscoding("x", {}, program_, false);
                      }),
            (List{"-s", "0", "-i", kSource, "-o", "x", "--aidx", "0"}));
}

TEST_F(Launch, OfTheWrapperChoosesTheAudioCodec) {
  const struct {
    const char* format;
    const char* device;
    const char* track;
    const char* codec;  // of the first track
    const char* chosen;
  } rows[] = {
      {"ac3_copy", "", "1", "ac3", "copy"},  {"ac3_copy", "tv", "1", "eac3", "copy"},
      {"ac3_copy", "", "2", "ac3", ""},      {"ac3_copy", "chromecast", "1", "ac3", "aac"},
      {"", "chromecast", "1", "ac3", "aac"}, {"aac", "", "1", "ac3", "aac"},
      {"aac", "", "1", "dts", "aac"},        {"ac3_copy", "", "1", "dts", ""},
      {"mp3", "", "1", "ac3", ""},           {"", "", "1", "ac3", ""},
      {"copy", "", "1", "ac3", ""},
  };
  for (const auto& row : rows) {
    Json::Value record = FilmRecord("--acodec");
    record["device"] = row.device;
    record["track_info"]["audio"][0]["codec"] = row.codec;
    Write(Directory("HLS") + "/audio_format", row.format);
    Write(Directory("HLS") + "/audio_id", row.track);
    List expected = {"-s", "0", "-i", kSource, "-o", "x", "--aidx", *row.track == '1' ? "0" : "1"};
    if (*row.chosen != '\0') {
      expected.insert(expected.end(), {"--acodec", row.chosen});
    }
    EXPECT_EQ(Transcode("braswell", "HLS", record,
                        [this](PlainStream& stream) {
                          stream.ExecuteGstreamerTranscoding("x", {}, program_, false);
                        }),
              expected)
        << row.format << " " << row.device << " " << row.codec;
  }
}

TEST_F(Launch, OfTheWrapperNeedsNoAudioTrack) {
  Json::Value record = FilmRecord("--acodec");
  record["track_info"]["audio"] = Json::Value(Json::arrayValue);
  EXPECT_EQ(Transcode("braswell", "HLS", record,
                      [this](PlainStream& stream) {
                        stream.ExecuteGstreamerTranscoding("x", {}, program_, false);
                      }),
            (List{"-s", "0", "-i", kSource, "-o", "x"}));
}

class Arguments : public test::StreamTest {
 protected:
  // Runs `check` with a stream of this record on this platform.
  void With(const std::string& platform, const Json::Value& record,
            const std::function<void(PlainStream&)>& check) const {
    MakeStream("HTTP", record);
    On(platform, [&] {
      PlainStream stream("HTTP");
      check(stream);
    });
  }
};

TEST_F(Arguments, TheFirstVideoBitRateIsAdjusted) {
  With("avoton", FilmRecord("x"), [](PlainStream& stream) {  // the source has 2000000
    const struct {
      List before;
      List after;
    } rows[] = {
        {{"-vb", "1000k", "-x"}, {"-vb", "1000000", "-x"}},
        {{"-vb", "3000k"}, {"-vb", "2000000"}},
        {{"-vb", "1500000"}, {"-vb", "1500000"}},
        {{"--vb", "1000k"}, {"--vb", "1000000"}},
        {{"-vb", "1000k", "-vb", "1000k"}, {"-vb", "1000000", "-vb", "1000k"}},
        {{"--vb", "1000k", "-vb", "1000k"}, {"--vb", "1000000", "-vb", "1000k"}},
        {{"-vb", "100k"}, {"-vb", "500000"}},
        {{"-vb", "x"}, {"-vb", "500000"}},
        {{"-x", "-vb"}, {"-x", "-vb"}},
        {{"-vb"}, {"-vb"}},
        {{"-ab", "128k"}, {"-ab", "128k"}},
        {{}, {}},
    };
    for (const auto& row : rows) {
      List list = row.before;
      stream.ForceTranscodeBitrate(list);
      EXPECT_EQ(list, row.after);
    }
  });
}

TEST_F(Arguments, TheAudioEncoderIsReplaced) {
  PlainStream stream("HTTP");
  const List list = {"-acodec", "x", "-ab", "128k", "-ar", "48000", "-ac", "2", "-vb", "1"};
  EXPECT_EQ(stream.ForceFFmpegAudioFormat(list, "copy"), (List{"-acodec", "copy", "-vb", "1"}));
  EXPECT_EQ(stream.ForceFFmpegAudioFormat(list, "mp3"),
            (List{"-acodec", "libshine", "-ab", "128k", "-ar", "48000", "-ac", "2", "-vb", "1"}));
  EXPECT_EQ(stream.ForceFFmpegAudioFormat(list, "aac")[1], "libfdk_aac");
  EXPECT_EQ(stream.ForceFFmpegAudioFormat(list, "other")[1], "");
  EXPECT_EQ(stream.ForceFFmpegAudioFormat(list, "other").size(), list.size());
  EXPECT_EQ(stream.ForceFFmpegAudioFormat({"-x", "-acodec"}, "aac"),
            (List{"-x", "-acodec", "libfdk_aac"}));
  EXPECT_EQ(stream.ForceFFmpegAudioFormat({"-x", "-ab"}, "copy"), List{"-x"});
  EXPECT_EQ(stream.ForceFFmpegAudioFormat({}, "aac"), List{});
}

TEST_F(Arguments, ThePictureSizeBecomesTheBoxInSoftware) {
  With("avoton", FilmRecord("x"), [](PlainStream& stream) {
    EXPECT_EQ(stream.ForceFFmpegVideoSize({"-s", "hd480", "-x"}, false),
              (List{"-s", "852x480", "-x"}));
  });
  Json::Value plain = FilmRecord("x");
  plain["track_info"]["video"][0]["sample_aspect_ratio_num"] = 0;
  With("avoton", plain, [](PlainStream& stream) {
    EXPECT_EQ(stream.ForceFFmpegVideoSize({"-s", "hd720", "-x"}, false),
              (List{"-s", "1280x720", "-aspect", "1.77778", "-x"}));
    EXPECT_EQ(stream.ForceFFmpegVideoSize({"-s", "hd480"}, false),
              (List{"-s", "852x480", "-aspect", "1.775"}));
    EXPECT_EQ(stream.ForceFFmpegVideoSize({"-s", "hd480"}, true), (List{"-s", "852x478"}))
        << "fitted, without an aspect";
  });
}

TEST_F(Arguments, ThePictureSizeIsFittedInHardware) {
  Json::Value plain = FilmRecord("h264_vaapi");
  plain["track_info"]["video"][0]["sample_aspect_ratio_num"] = 0;
  With("braswell", plain, [](PlainStream& stream) {
    EXPECT_EQ(stream.ForceFFmpegVideoSize({"-s", "hd480"}, false), (List{"-s", "852x478"}));
  });
}

TEST_F(Arguments, ThePictureSizeIsTurnedWithTheFilm) {
  Json::Value turned = FilmRecord("x");
  turned["track_info"]["video"][0]["rotate"] = 90;
  With("avoton", turned, [](PlainStream& stream) {
    EXPECT_EQ(stream.ForceFFmpegVideoSize({"-s", "hd720"}, false), (List{"-s", "720x1280"}));
  });
}

TEST_F(Arguments, AnUnknownPictureSizeStays) {
  With("avoton", FilmRecord("x"), [](PlainStream& stream) {
    EXPECT_EQ(stream.ForceFFmpegVideoSize({"-s", "640x352"}, false), (List{"-s", "640x352"}));
    EXPECT_EQ(test::TakeLogTexts(), List{"liborvoqmx:N Failed to GetTransVideoSize"});
    EXPECT_EQ(stream.ForceFFmpegVideoSize({"-x", "-s"}, false), (List{"-x", "-s"}));
    EXPECT_EQ(stream.ForceFFmpegVideoSize({"hd720"}, false), List{"hd720"});
    EXPECT_TRUE(test::TakeLog().empty());
  });
}

class Monitor : public test::StreamTest {
 protected:
  void SetUp() override {
    StreamTest::SetUp();
    MakeDirectory(Directory("HLS"));
  }
  std::string Recorded() const { return Read(Directory("HLS") + "/monitor.pid"); }
  void Record(pid_t pid) const { Write(Directory("HLS") + "/monitor.pid", std::to_string(pid)); }
};

TEST_F(Monitor, IsRecorded) {
  const PlainStream stream("HLS");
  EXPECT_FALSE(stream.IsFFmpegRun());
  EXPECT_TRUE(stream.SaveMonitorPid(getpid(), false));
  EXPECT_EQ(Recorded(), std::to_string(getpid()));
  EXPECT_EQ(Read(Directory("HLS") + "/filelock"), "");
  EXPECT_TRUE(Exists(Directory("HLS") + "/filelock"));
  EXPECT_TRUE(stream.IsFFmpegRun());
}

TEST_F(Monitor, ThatIsReplacedEnds) {
  Child old(test::SleepUntilKilled);
  Record(old.Pid());
  EXPECT_TRUE(PlainStream("HLS").SaveMonitorPid(getpid(), true));
  EXPECT_FALSE(PlatProcAlive(old.Pid())) << "it was waited for";
  EXPECT_EQ(old.Wait(), 128 + SIGTERM);
  EXPECT_EQ(Recorded(), std::to_string(getpid()));
}

TEST_F(Monitor, ThatEndsWithoutASuccessorStaysRecorded) {
  for (const int pid : {0, -1}) {
    Child old(test::SleepUntilKilled);
    Record(old.Pid());
    EXPECT_TRUE(PlainStream("HLS").SaveMonitorPid(pid, false));
    EXPECT_EQ(old.Wait(), 128 + SIGTERM);
    EXPECT_EQ(Recorded(), std::to_string(old.Pid()));
    EXPECT_FALSE(PlainStream("HLS").IsFFmpegRun());
  }
}

TEST_F(Monitor, ThatWillNotEndIsWaitedForAboutFiveSeconds) {
  Child stubborn([] {
    signal(SIGTERM, SIG_IGN);
    test::StopHere();
    test::SleepUntilKilled();
  });
  ASSERT_TRUE(stubborn.WaitUntilStopped());
  stubborn.Continue();
  Record(stubborn.Pid());
  const double start = test::Now();
  EXPECT_TRUE(PlainStream("HLS").SaveMonitorPid(0, true));
  EXPECT_GE(test::Now() - start, 4.5);
  EXPECT_LT(test::Now() - start, 7.0);
  EXPECT_EQ(Recorded(), std::to_string(stubborn.Pid()));
  EXPECT_TRUE(PlatProcAlive(stubborn.Pid()));
}

TEST_F(Monitor, FileWithoutAPidCausesNoSignal) {
  // A process group of its own would be hit by a 0.
  test::InChild([this] {
    ASSERT_EQ(setpgid(0, 0), 0);
    for (const char* content : {"0", "-1", "abc", " ", "\n"}) {
      Write(Directory("HLS") + "/monitor.pid", content);
      EXPECT_TRUE(PlainStream("HLS").SaveMonitorPid(0, true)) << content;
      EXPECT_FALSE(PlainStream("HLS").IsFFmpegRun()) << content;
    }
  });
}

TEST_F(Monitor, NeedsADirectoryForItsLock) {
  EXPECT_FALSE(PlainStream("HLS", "other").SaveMonitorPid(0, false));
  EXPECT_FALSE(PlainStream("", "").SaveMonitorPid(0, false));
}

TEST_F(Monitor, OfAStreamWithoutAnIdOrAKindIsABadParameter) {
  EXPECT_FALSE(PlainStream("").IsFFmpegRun());
  EXPECT_FALSE(PlainStream("HLS", "").IsFFmpegRun());
  EXPECT_EQ(test::TakeLogTexts(), List(2, "liborvoqmx:N Bad parameter"));
}

TEST_F(Monitor, IsOneOfManyThatReplaceItAtOnce) {
  // Every one records itself and ends the one before; only the last recorded is left alone.
  constexpr int kMonitors = 8;
  Pipe recorded;
  std::vector<std::unique_ptr<Child>> monitors;
  for (int i = 0; i < kMonitors; ++i) {
    monitors.push_back(std::make_unique<Child>([&] {
      // The signal of a successor may come before the answer is out.
      sigset_t term;
      sigemptyset(&term);
      sigaddset(&term, SIGTERM);
      sigprocmask(SIG_BLOCK, &term, nullptr);
      PlainStream("HLS").SaveMonitorPid(getpid(), false);
      recorded.Write("x");
      sigprocmask(SIG_UNBLOCK, &term, nullptr);
      test::SleepUntilKilled();
    }));
  }
  ASSERT_EQ(recorded.Read(kMonitors).size(), static_cast<size_t>(kMonitors));
  int left = 0;
  for (const auto& monitor : monitors) {
    if (std::to_string(monitor->Pid()) == Recorded()) {
      ++left;
      EXPECT_TRUE(PlatProcAlive(monitor->Pid()));
      continue;
    }
    EXPECT_EQ(monitor->Wait(), 128 + SIGTERM);
  }
  EXPECT_EQ(left, 1);
}

}  // namespace
