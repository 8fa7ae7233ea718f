// The processes of a Smooth Streaming stream, with scripts in the transcoder's place.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <ctime>
#include <memory>
#include <optional>

#include "platform/plat.h"
#include "stream/smooth_stream.h"
#include "support/log_capture.h"
#include "support/processes.h"
#include "support/stand_in.h"
#include "support/streams.h"

namespace {

using LibOrvoQMX::QMXMetaData;
using LibOrvoQMX::SmoothStream;
using test::Child;
using test::FilmRecord;
using test::kFfmpeg;
using test::kId;
using test::kStandIn;
using List = std::vector<std::string>;

constexpr char kProfile[] = "-vcodec libx264 -s 240\n-vb 200k";

class SmoothMonitor : public test::StreamTest {
 protected:
  void SetUp() override {
    StreamTest::SetUp();
    WriteScript(kFfmpeg, kStandIn);
    standIn_.emplace(Root());
    MakeStreamOnVolume("SS", FilmRecord(kProfile));
  }

  static std::string File(const std::string& name) { return Directory("SS") + "/" + name; }
  static std::string Id(int seconds, const std::string& type = "video") {
    return "QualityLevels(200000)/Fragments(" + type + "=" + std::to_string(seconds * 10000000LL) +
           ")";
  }
  pid_t Monitor() const { return std::stoi(Read(File("monitor.pid"))); }
  pid_t NextStarted() const { return standIn_->NextStarted(); }

  // A request in a process of its own.
  static bool Request(const std::string& id) {
    Child request([&] { EXPECT_TRUE(SmoothStream(kId).Transcoding(id)); });
    return request.Wait() == 0;
  }

  std::optional<test::StandIn> standIn_;
};

TEST_F(SmoothMonitor, StartsATranscoderAtTheFragment) {
  On("avoton", [this] {
    ASSERT_TRUE(Request(Id(60)));
    EXPECT_TRUE(PlatProcAlive(Monitor())) << "recorded before Transcoding comes back";
    const pid_t transcoder = NextStarted();
    EXPECT_EQ(
        standIn_->Arguments(transcoder),
        (List{"-ss", "60.000", "-i", "/volume1/video/film.mkv", "-vcodec", "libx264", "-s",
              "430x240", "-vb", "200k", "-fragment_length", "5", "-seek_time", "60", "-map", "0:0",
              "-map", "0:1", Path("/volume1/@tmp/Mirevo/SS/" + std::string(kId) + "/smooth")}));
    EXPECT_EQ(Read(File("seek_time")), "60");
    EXPECT_EQ(Registry(), test::JsonArray({test::RegistryEntry(transcoder, false)}));
    EXPECT_TRUE(SmoothStream(kId).Close());
    test::ReapAll();
    EXPECT_FALSE(PlatProcAlive(transcoder));
    EXPECT_FALSE(Exists(Directory("SS")));
  });
}

TEST_F(SmoothMonitor, StartsNoTranscoderIfItCannotBeRecorded) {
  On("avoton", [this] {
    // Nothing can be written to this device.
    ASSERT_EQ(symlink("/dev/full", Path(File("monitor.pid")).c_str()), 0);
    ASSERT_TRUE(Request(Id(0)));
    test::ReapAll();
    EXPECT_FALSE(standIn_->HasStarted());
  });
}

TEST_F(SmoothMonitor, TellsItsCommandLineBeforeItIsOpened) {
  On("avoton", [this] {
    QMXMetaData opened(kId, "SS");
    ASSERT_TRUE(opened.LoadMetaData());
    const auto plan =
        QMXMetaData::Plan(opened, opened.GetProfileKey(), opened.GetProfileValue(), "");
    List expected = SmoothStream(plan).CommandLine(Path("/volume1/@tmp/Mirevo/SS/") + kId);
    ASSERT_FALSE(expected.empty());
    EXPECT_EQ(expected.front(), Path(test::kFfmpeg));
    expected.erase(expected.begin());
    ASSERT_TRUE(Request(Id(0)));
    EXPECT_EQ(standIn_->Arguments(NextStarted()), expected);
    EXPECT_TRUE(SmoothStream(kId).Close());
    test::ReapAll();
  });
}

TEST_F(SmoothMonitor, KeepsATranscoderThatWillReachTheFragmentSoon) {
  On("avoton", [this] {
    ASSERT_TRUE(Request(Id(0)));
    const pid_t first = NextStarted();
    const pid_t monitor = Monitor();
    for (const std::string& id : {Id(0), Id(50), Id(1000, "audio")}) {
      ASSERT_TRUE(Request(id));
    }
    Write(File("smooth/" + Id(100)), "x");
    ASSERT_TRUE(Request(Id(140)));
    EXPECT_EQ(Monitor(), monitor);
    EXPECT_FALSE(standIn_->HasStarted());
    EXPECT_TRUE(PlatProcAlive(first));
    // A far one replaces it, and takes its fragments away.
    ASSERT_TRUE(Request(Id(160)));
    const pid_t second = NextStarted();
    EXPECT_FALSE(PlatProcAlive(first) || PlatProcAlive(monitor));
    EXPECT_FALSE(Exists(File("smooth")));
    // And so does one from before its start.
    ASSERT_TRUE(Request(Id(30)));
    NextStarted();
    EXPECT_FALSE(PlatProcAlive(second));
    SmoothStream(kId).Close();
    test::ReapAll();
  });
}

TEST_F(SmoothMonitor, IsNotStartedForAudio) {
  On("avoton", [this] {
    EXPECT_TRUE(SmoothStream(kId).Transcoding(Id(0, "audio")));
    EXPECT_FALSE(Exists(File("monitor.pid")));
    EXPECT_FALSE(Exists(File("seek_time")));
  });
}

TEST_F(SmoothMonitor, NeedsAStreamAndAFragment) {
  On("avoton", [] {
    EXPECT_FALSE(SmoothStream("").Transcoding(Id(0)));
    EXPECT_FALSE(SmoothStream("unknown").Transcoding(Id(0)));
    EXPECT_FALSE(SmoothStream(kId).Transcoding(""));
    EXPECT_FALSE(SmoothStream("unknown").Restart(Id(0)));
    EXPECT_FALSE(SmoothStream(kId).Restart(""));
  });
}

TEST_F(SmoothMonitor, IsOneForManyRequestsAtOnce) {
  On("avoton", [this] {
    std::vector<std::unique_ptr<Child>> requests;
    for (int i = 0; i < 6; ++i) {
      requests.push_back(std::make_unique<Child>([] { SmoothStream(kId).Transcoding(Id(60)); }));
    }
    for (const auto& request : requests) {
      EXPECT_EQ(request->Wait(), 0);
    }
    NextStarted();
    SmoothStream(kId).Close();
    test::ReapAll();
    EXPECT_FALSE(standIn_->HasStarted());
  });
}

TEST_F(SmoothMonitor, StartsAgainOnDemand) {
  On("avoton", [this] {
    ASSERT_TRUE(Request(Id(0)));
    kill(NextStarted(), SIGKILL);
    test::ReapAll();
    // The common rules leave it at that.
    ASSERT_TRUE(Request(Id(0)));
    EXPECT_FALSE(standIn_->HasStarted());
    Child request([] { EXPECT_TRUE(SmoothStream(kId).Restart(Id(25))); });
    EXPECT_EQ(request.Wait(), 0);
    NextStarted();
    EXPECT_EQ(Read(File("seek_time")), "25");
    SmoothStream(kId).Close();
    test::ReapAll();
  });
}

TEST_F(SmoothMonitor, EndsWithASignal) {
  On("avoton", [this] {
    for (const int number : {SIGTERM, SIGINT}) {
      ASSERT_TRUE(Request(Id(0)));
      const pid_t transcoder = NextStarted();
      const double start = test::Now();
      kill(Monitor(), number);
      test::ReapAll();
      EXPECT_LT(test::Now() - start, 0.9);
      EXPECT_FALSE(PlatProcAlive(transcoder));
      EXPECT_EQ(Registry(), Json::Value(Json::arrayValue));
      unlink(Path(File("seek_time")).c_str());
    }
  });
}

TEST_F(SmoothMonitor, EndsTheTranscoderHoweverItEndsItself) {
  On("avoton", [this] {
    ASSERT_TRUE(Request(Id(0)));
    const pid_t transcoder = NextStarted();
    kill(Monitor(), SIGKILL);
    test::ReapAll();
    EXPECT_FALSE(PlatProcAlive(transcoder));
  });
}

TEST_F(SmoothMonitor, KillsATranscoderThatWillNotEnd) {
  On("avoton", [this] {
    WriteScript(kFfmpeg, std::string("trap '' INT\n") + kStandIn);
    ASSERT_TRUE(Request(Id(0)));
    const pid_t transcoder = NextStarted();
    // A new one comes only after that.
    WriteScript(kFfmpeg, kStandIn);
    ASSERT_TRUE(Request(Id(60)));
    EXPECT_FALSE(PlatProcAlive(transcoder));
    NextStarted();
    SmoothStream(kId).Close();
    test::ReapAll();
  });
}

TEST_F(SmoothMonitor, EndsWithTheTranscoder) {
  On("avoton", [this] {
    ASSERT_TRUE(Request(Id(0)));
    const pid_t transcoder = NextStarted();
    Write(File("smooth/" + Id(0)), "x");
    Child request([] {
      EXPECT_TRUE(SmoothStream(kId).Transcoding(Id(0)));
      EXPECT_NE(SmoothStream(kId).ReadFragment(Id(0)), "");
    });
    kill(transcoder, SIGKILL);
    EXPECT_EQ(request.Wait(), 0) << "the last fragment is complete now";
    test::ReapAll();
    EXPECT_EQ(Registry(), Json::Value(Json::arrayValue));
  });
}

TEST_F(SmoothMonitor, EndsWhenTheClientHasGone) {
  On("avoton", [this] {
    Write(File("access_status"), "");
    const timespec times[2] = {{0, UTIME_OMIT}, {time(nullptr) - 900, 0}};
    ASSERT_EQ(utimensat(AT_FDCWD, Path(File("access_status")).c_str(), times, 0), 0);
    WriteScript(kFfmpeg, "exec sleep 1000\n");
    Child monitor([] {
      SmoothStream(kId).ExecuteMointer(Id(0));
      EXPECT_EQ(test::TakeLogTexts(), List{"smooth_stream:N time out for access [900 seconds]"});
    });
    EXPECT_EQ(monitor.Wait(), 0);
    EXPECT_FALSE(Exists(Directory("SS")));
  });
}

TEST_F(SmoothMonitor, StartsNothingForAHeightWithoutASize) {
  On("avoton", [this] {
    WriteJson(File("video_metadata"), FilmRecord("-vcodec libx264 -s hd720 -vb 1"));
    EXPECT_EQ(SmoothStream(kId).CalculateFFmpegArgument(), List());
    EXPECT_EQ(test::TakeLogTexts(),
              (List{"smooth_stream:N Error: Output resolution not support",
                    "smooth_stream:N Failed to calculate transcoding resolution"}));
    ASSERT_TRUE(Request(Id(0)));
    test::ReapAll();
    EXPECT_FALSE(standIn_->HasStarted());
    WriteJson(File("video_metadata"), FilmRecord("-an -s"));
    EXPECT_EQ(SmoothStream(kId).CalculateFFmpegArgument(),
              (List{"-an", "-s", "-fragment_length", "5", "-seek_time", "0"}));
    SmoothStream(kId).ExecuteMointer("");
    EXPECT_FALSE(standIn_->HasStarted());
  });
}

TEST_F(SmoothMonitor, StartsNothingForAFragmentBeforeTheFilm) {
  On("avoton", [this] {
    ASSERT_TRUE(Request("q/Fragments(video=-50000000)"));
    test::ReapAll();
    EXPECT_FALSE(standIn_->HasStarted());
  });
}

TEST_F(SmoothMonitor, OfTheHardwareEncoderRequestsAFullStream) {
  WriteJson(File("video_metadata"), FilmRecord("-vcodec h264_smd -s 720"));
  On("evansport", [this] {
    EXPECT_TRUE(SmoothStream(kId).Transcoding(Id(0)));
    const List arguments = standIn_->Arguments(NextStarted());
    EXPECT_EQ(List(arguments.begin(), arguments.begin() + 4),
              (List{"-ss", "0.000", "-prefer_smd", "-copyts"}));
    const auto filled = std::find(arguments.begin(), arguments.end(), "-filled");
    EXPECT_EQ(List(filled - 4, filled + 2),
              (List{"-fragment_length", "5", "-seek_time", "0", "-filled", "1"}));
    SmoothStream(kId).Close();
    test::ReapAll();
  });
}

TEST_F(SmoothMonitor, NamesNoFolderIfTheStreamDirectoryIsNotALink) {
  On("avoton", [this] {
    ASSERT_EQ(unlink(Path(Directory("SS")).c_str()), 0);
    MakeStream("SS", FilmRecord(kProfile));
    WriteScript(kFfmpeg,
                "for last; do :; done; printf '<%s>' \"$last\" > \"$ORVO_SYSROOT/last\"\n");
    ASSERT_TRUE(Request(Id(0)));
    test::ReapAll();
    EXPECT_EQ(Read("/last"), "<>");
  });
}

TEST_F(SmoothMonitor, DoesNotKeepTheRequestsClientWaiting) {
  On("avoton", [this] {
    test::Pipe output;
    Child request([&] {
      dup2(output.WriteEnd(), STDOUT_FILENO);
      dup2(output.WriteEnd(), STDERR_FILENO);
      output.CloseWrite();
      SmoothStream(kId).Transcoding(Id(0));
    });
    EXPECT_EQ(output.ReadToEnd(), "");
    EXPECT_EQ(request.Wait(), 0);
    NextStarted();
    EXPECT_TRUE(PlatProcAlive(Monitor()));
    SmoothStream(kId).Close();
    test::ReapAll();
  });
}

}  // namespace
