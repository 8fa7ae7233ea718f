#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/inotify.h>
#include <sys/stat.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>
#include <memory>
#include <regex>

#include "platform/unique_fd.h"
#include "state/stream_lock.h"
#include "stream/hls/hls_pipeline.h"
#include "stream/hls/hls_segments.h"
#include "support/hls.h"
#include "support/processes.h"

namespace {

using LibOrvoQMX::HttpLiveStream;
using test::Child;
using test::kId;
using test::Pipe;

class HlsSegments : public test::HlsTest {
 protected:
  void SetUp() override {
    HlsTest::SetUp();
    Open(test::kTranscodeProfile);
  }

  // A process that stands for the stream's monitor.
  std::unique_ptr<Child> StartMonitor() const {
    auto monitor = std::make_unique<Child>([] { test::SleepUntilKilled(); });
    Write(File("monitor.pid"), std::to_string(monitor->Pid()));
    return monitor;
  }
  void Finish(int number) const { Write(Slice(number), "segment"); }

  // A request for segment 7 in a process of its own.
  class Request {
   public:
    explicit Request(const std::string& sequence = "")
        : process_([&] {
            HttpLiveStream stream(kId);
            if (!sequence.empty()) {
              stream.WriteSequence();
            }
            began_.Write("x");
            answer_.Write(stream.ReadFragment("7"));
          }) {
      EXPECT_EQ(began_.Read(1), "x");
    }
    bool IsAnsweredWithin(int milliseconds) const {
      pollfd answer{answer_.ReadEnd(), POLLIN, 0};
      return poll(&answer, 1, milliseconds) != 0;
    }
    std::string Answer() {
      const std::string path = answer_.ReadToEnd();
      EXPECT_EQ(process_.Wait(), 0);
      return path;
    }

   private:
    Pipe began_;
    Pipe answer_;
    Child process_;
  };

  // What such a request gets after `event`.
  std::string WaitFor(const std::function<void()>& event, const std::string& sequence = "") const {
    Request request(sequence);
    event();
    return request.Answer();
  }

  // Sees other processes read a file.
  class ReadWatch {
   public:
    explicit ReadWatch(const std::string& path) : reads_(inotify_init1(IN_CLOEXEC)) {
      EXPECT_GE(inotify_add_watch(reads_.Get(), path.c_str(), IN_CLOSE_NOWRITE), 0);
    }
    bool SeesOneWithin(int milliseconds) const {
      pollfd read{reads_.Get(), POLLIN, 0};
      return poll(&read, 1, milliseconds) == 1;
    }

   private:
    orvo::UniqueFd reads_;
  };
};

TEST_F(HlsSegments, HaveFilesByNumber) {
  On("avoton", [this] {
    const HttpLiveStream stream(kId);
    EXPECT_EQ(stream.GetSegmentTsPath(7), Path(Slice(7)));
    EXPECT_EQ(stream.GetSegmentTsPath(123456), Path(File("slice-123456.ts")));
  });
}

TEST_F(HlsSegments, BeginAtMultiplesOfTheirLength) {
  On("avoton", [] {
    HttpLiveStream stream(kId);
    EXPECT_EQ(stream.CalculateSeekTime(0), 0);
    EXPECT_EQ(stream.CalculateSeekTime(7), 35000);
    EXPECT_EQ(stream.CalculateSeekTime(-1), -1);
    EXPECT_EQ(stream.CalculateSeekTime(2147483647), -1);
    EXPECT_EQ(stream.GetSegmentTimeDelta(0), 0);
    EXPECT_EQ(stream.GetSegmentTimeDelta(2), -10);
    EXPECT_EQ(stream.GetSeekTimeInMillisecond(), 0);
  });
}

TEST_F(HlsSegments, NeedNoRestartIfTheTranscoderWillReachThemSoon) {
  On("avoton", [this] {
    const auto monitor = StartMonitor();
    Write(File("seek_time"), "10");
    const HttpLiveStream stream(kId);
    for (const char* near : {"10", "11", "14"}) {
      EXPECT_FALSE(stream.IsTransAndSegNeedToRestart(near)) << near;
    }
    for (const char* far : {"15", "9", "0", "100000"}) {
      EXPECT_TRUE(stream.IsTransAndSegNeedToRestart(far)) << far;
    }
    Finish(11);
    EXPECT_FALSE(stream.IsTransAndSegNeedToRestart("15"));
    EXPECT_TRUE(stream.IsTransAndSegNeedToRestart("16"));
    Finish(3);
    EXPECT_FALSE(stream.IsTransAndSegNeedToRestart("3"));
    EXPECT_TRUE(stream.IsTransAndSegNeedToRestart("4"));
    EXPECT_FALSE(stream.IsTransAndSegNeedToRestart("7"));
  });
}

TEST_F(HlsSegments, NearTheStartAreCountedFromTheFirst) {
  On("avoton", [this] {
    const auto monitor = StartMonitor();
    const HttpLiveStream stream(kId);
    EXPECT_TRUE(stream.IsTransAndSegNeedToRestart("3"));
    Finish(0);
    EXPECT_FALSE(stream.IsTransAndSegNeedToRestart("3"));
    EXPECT_FALSE(stream.IsTransAndSegNeedToRestart("4"));
    EXPECT_TRUE(stream.IsTransAndSegNeedToRestart("5"));
  });
}

TEST_F(HlsSegments, NeedARestartIfNoTranscoderRunsAndTheyAreMissing) {
  On("avoton", [this] {
    const HttpLiveStream stream(kId);
    Finish(3);
    EXPECT_FALSE(stream.IsTransAndSegNeedToRestart("3"));
    EXPECT_TRUE(stream.IsTransAndSegNeedToRestart("4"));
    EXPECT_FALSE(stream.IsTransAndSegNeedToRestart(""));
    EXPECT_FALSE(HttpLiveStream("").IsTransAndSegNeedToRestart("4"));
    // The rule about a near start asks nothing of the transcoder.
    Write(File("seek_time"), "4");
    EXPECT_FALSE(stream.IsTransAndSegNeedToRestart("8"));
    // What is no number counts as 0.
    EXPECT_TRUE(stream.IsTransAndSegNeedToRestart("x"));
    EXPECT_TRUE(stream.IsTransAndSegNeedToRestart("99999999999999999999"));
  });
}

TEST_F(HlsSegments, AreCompleteWhenTheNextOneExists) {
  On("avoton", [this] {
    const auto monitor = StartMonitor();
    const HttpLiveStream stream(kId);
    EXPECT_FALSE(stream.VerifyFragmentIsReady("7"));
    Finish(7);
    EXPECT_FALSE(stream.VerifyFragmentIsReady("7"));
    Finish(8);
    EXPECT_TRUE(stream.VerifyFragmentIsReady("7"));
    EXPECT_FALSE(stream.VerifyFragmentIsReady("8"));
    EXPECT_FALSE(stream.VerifyFragmentIsReady(""));
  });
}

TEST_F(HlsSegments, AreCompleteWhenNoTranscoderRuns) {
  On("avoton", [this] {
    const auto monitor = StartMonitor();
    Finish(7);
    const HttpLiveStream stream(kId);
    EXPECT_FALSE(stream.VerifyFragmentIsReady("7"));
    monitor->Kill(SIGKILL);
    monitor->WaitUntilZombie();
    EXPECT_TRUE(stream.VerifyFragmentIsReady("7"));
  });
}

TEST_F(HlsSegments, AreServedTheMomentTheyAreComplete) {
  On("avoton", [this] {
    const double start = test::Now();
    for (int i = 0; i < 5; ++i) {
      const auto monitor = StartMonitor();
      Finish(7);
      EXPECT_EQ(WaitFor([&] { Finish(8); }), Path(Slice(7)));
      unlink(Path(Slice(8)).c_str());
      EXPECT_EQ(WaitFor([&] { monitor->Kill(SIGKILL); }), Path(Slice(7)));
    }
    // Ten looks a second later would take ten seconds.
    EXPECT_LT(test::Now() - start, 5);
  });
}

TEST_F(HlsSegments, AreGivenUpTheMomentANewerRequestRestartsTheStream) {
  On("avoton", [this] {
    const auto monitor = StartMonitor();
    Finish(7);
    const double start = test::Now();
    for (int i = 0; i < 5; ++i) {
      EXPECT_EQ(WaitFor([] { HttpLiveStream(kId).WriteSequence(); }, "own"), "");
    }
    EXPECT_LT(test::Now() - start, 3);
  });
}

TEST_F(HlsSegments, AreNotServedIfARestartLeftThemHalf) {
  On("avoton", [this] {
    HttpLiveStream(kId).WriteSequence();
    const auto monitor = StartMonitor();
    const auto next = std::make_unique<Child>([] { test::SleepUntilKilled(); });
    Finish(7);
    const ReadWatch sequence(Path(File("request_sequence")));
    Request request;
    ASSERT_TRUE(sequence.SeesOneWithin(30000));
    HttpLiveStream(kId).WriteSequence();
    monitor->Kill(SIGKILL);
    EXPECT_FALSE(request.IsAnsweredWithin(300)) << "with the half segment";
    unlink(Path(Slice(7)).c_str());
    Write(File("monitor.pid"), std::to_string(next->Pid()));
    Write(Slice(7), "whole");
    Finish(8);
    EXPECT_EQ(request.Answer(), Path(Slice(7)));
  });
}

TEST_F(HlsSegments, ComeFromNoMonitorThatANewerRequestReplaced) {
  On("avoton", [this] {
    const LibOrvoQMX::StreamDirectory directory("HLS", kId);
    const std::string own = LibOrvoQMX::WriteSequence(directory);
    const LibOrvoQMX::Segment segment(7);
    EXPECT_TRUE(BecomeMonitor(directory, segment, own));
    EXPECT_EQ(Read(File("monitor.pid")), std::to_string(getpid()));
    EXPECT_EQ(Read(File("seek_time")), "7");
    unlink(Path(File("monitor.pid")).c_str());
    LibOrvoQMX::WriteSequence(directory);
    EXPECT_FALSE(BecomeMonitor(directory, segment, own));
    EXPECT_FALSE(Exists(File("monitor.pid")));
  });
}

TEST_F(HlsSegments, AreGivenUpWithTheStream) {
  On("avoton", [this] {
    const auto monitor = StartMonitor();
    EXPECT_EQ(WaitFor([&] {
                std::filesystem::remove_all(Path("/volume1/@tmp/Mirevo/HLS/" + std::string(kId)));
              }),
              "");
  });
}

TEST_F(HlsSegments, AreGivenUpWhenTheirMonitorHasEndedWithoutThem) {
  On("avoton", [this] {
    HttpLiveStream(kId).WriteSequence();
    const auto monitor = StartMonitor();
    // The clock of files ticks coarsely.
    struct stat sequence {};
    ASSERT_EQ(stat(Path(File("request_sequence")).c_str(), &sequence), 0);
    const timespec times[2] = {{0, UTIME_OMIT}, {sequence.st_mtim.tv_sec + 1, 0}};
    ASSERT_EQ(utimensat(AT_FDCWD, Path(File("monitor.pid")).c_str(), times, 0), 0);
    EXPECT_EQ(WaitFor([&] { monitor->Kill(SIGKILL); }), "");
  });
}

TEST_F(HlsSegments, OfNoStreamAreNotWaitedFor) {
  On("avoton", [] {
    EXPECT_EQ(HttpLiveStream("").ReadFragment("7"), "");
    EXPECT_EQ(HttpLiveStream(kId).ReadFragment(""), "");
    EXPECT_EQ(HttpLiveStream("unknown").ReadFragment("7"), "");
  });
}

TEST_F(HlsSegments, AreFinishedWhenTheLastOneIsSent) {
  const LibOrvoQMX::StreamDirectory directory("HLS", kId);
  const LibOrvoQMX::HlsSegments segments(directory);
  Write(File("seek_time"), "7");
  Finish(7);
  EXPECT_FALSE(segments.IsFinished()) << "nobody has asked for it";
  auto sending = std::make_optional<LibOrvoQMX::SegmentHold>(directory.Path());
  directory.AskFor(7);
  EXPECT_FALSE(segments.IsFinished()) << "it is on its way";
  sending.reset();
  EXPECT_TRUE(segments.IsFinished());
}

TEST_F(HlsSegments, HaveRequestsInASequence) {
  On("avoton", [this] {
    HttpLiveStream first(kId);
    HttpLiveStream second(kId);
    EXPECT_TRUE(first.CheckSequence());
    const std::string text = first.WriteSequence();
    EXPECT_TRUE(std::regex_match(text, std::regex("[0-9]+\\.[0-9]{9}"))) << text;
    EXPECT_EQ(Read(File("request_sequence")), text);
    EXPECT_TRUE(first.CheckSequence());
    second.WriteSequence();
    EXPECT_FALSE(first.CheckSequence());
    EXPECT_TRUE(second.CheckSequence());
    EXPECT_TRUE(HttpLiveStream(kId).CheckSequence());
  });
}

TEST_F(HlsSegments, ComparesSequencesAsTexts) {
  On("avoton", [this] {
    HttpLiveStream stream(kId);
    const std::string own = stream.WriteSequence();
    const struct {
      std::string stored;
      bool isLatest;
    } rows[] = {{"", true},  {own, true},  {own.substr(0, own.size() - 1), true},
                {"/", true}, {":", false}, {own + "0", false},
                {"0", true}};
    for (const auto& row : rows) {
      Write(File("request_sequence"), row.stored);
      EXPECT_EQ(stream.CheckSequence(), row.isLatest) << row.stored;
    }
  });
}

}  // namespace
