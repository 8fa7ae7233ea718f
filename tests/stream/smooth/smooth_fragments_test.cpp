#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/file.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>
#include <memory>

#include "platform/unique_fd.h"
#include "stream/smooth_stream.h"
#include "support/log_capture.h"
#include "support/processes.h"
#include "support/streams.h"

namespace {

using LibOrvoQMX::SmoothStream;
using test::Child;
using test::kId;
using test::Pipe;
using List = std::vector<std::string>;

constexpr char kQuality[] = "QualityLevels(1500000)";

class SmoothFragments : public test::StreamTest {
 protected:
  void SetUp() override {
    StreamTest::SetUp();
    MakeStreamOnVolume("SS", test::FilmRecord("-vcodec libx264 -s 720"));
  }

  static std::string File(const std::string& name) { return Directory("SS") + "/" + name; }
  // The id of what starts at that second.
  static std::string Id(int seconds, const std::string& type = "video") {
    return std::string(kQuality) + "/Fragments(" + type + "=" +
           std::to_string(seconds * 10000000LL) + ")";
  }
  void Finish(const std::string& id) const { Write(File("smooth/" + id), "fragment"); }

  // A process that stands for the stream's monitor.
  std::unique_ptr<Child> StartMonitor() const {
    auto monitor = std::make_unique<Child>([] { test::SleepUntilKilled(); });
    Write(File("monitor.pid"), std::to_string(monitor->Pid()));
    return monitor;
  }

  // Start, type and quality of an id; empty where it has none.
  static List Parse(const std::string& id) {
    List parts(3);
    return SmoothStream(kId).ParseFragId(id, parts[0], parts[1], parts[2]) ? parts : List();
  }

  // What a request that waits for a fragment gets after `event`.
  static std::string WaitFor(const std::string& id, const std::function<void()>& event) {
    Pipe began;
    Pipe answer;
    Child request([&] {
      began.Write("x");
      answer.Write(SmoothStream(kId).ReadFragment(id));
    });
    EXPECT_EQ(began.Read(1), "x");
    event();
    const std::string path = answer.ReadToEnd();
    EXPECT_EQ(request.Wait(), 0);
    return path;
  }
};

TEST_F(SmoothFragments, HaveIdsOfTwoParts) {
  On("avoton", [] {
    EXPECT_EQ(Parse("QualityLevels(1)/Fragments(video=50000000)"),
              (List{"50000000", "video=", "QualityLevels(1)"}));
    EXPECT_EQ(Parse("q/Fragments(audio=0)"), (List{"0", "audio=", "q"}));
    EXPECT_EQ(Parse("q/video=1)audio=2)"), (List{"2", "audio=", "q"}));
    EXPECT_EQ(Parse("q/video=12"), (List{"12", "video=", "q"}));
    EXPECT_EQ(Parse("//q//x/"), (List{"", "", "q"}));
    for (const char* id : {"", "q", "/q/", "q/r/s", "/"}) {
      EXPECT_EQ(Parse(id), List()) << id;
    }
    // What does not fit is not read.
    EXPECT_EQ(Parse("q/" + std::string(121, 'x') + "video=1)"), (List{"", "video=", "q"}));
    EXPECT_EQ(Parse("q/" + std::string(122, 'x') + "video=1)"), (List{"", "", "q"}));
    EXPECT_EQ(Parse("q/video=" + std::string(5000, '9') + ")")[0], std::string(121, '9'));
    EXPECT_EQ(Parse(std::string(5000, 'q') + "/video=1")[2], std::string(5000, 'q'));
  });
}

TEST_F(SmoothFragments, SeekToTheSecondOfTheirStart) {
  On("avoton", [this] {
    const SmoothStream stream(kId);
    const struct {
      std::string id;
      long seconds;
    } rows[] = {{Id(60), 60}, {Id(0), 0}, {"q/video=59999999)", 5},
                {"q/x", 0},   {"q", 0},   {"q/video=99999999999999999999999)", 230584300921}};
    for (const auto& row : rows) {
      EXPECT_EQ(stream.CalculateSeekTime(row.id), row.seconds) << row.id;
      EXPECT_EQ(Read(File("seek_time")), std::to_string(row.seconds));
    }
    EXPECT_EQ(stream.GetSeekTimeInMillisecond(), 0);
  });
}

TEST_F(SmoothFragments, NeedASeekIfTheTranscoderWillNotReachThemSoon) {
  On("avoton", [this] {
    const SmoothStream stream(kId);
    EXPECT_TRUE(stream.IsNeedToSeek(Id(0))) << "nothing has started";
    EXPECT_FALSE(stream.IsNeedToSeek(Id(50)));
    EXPECT_TRUE(stream.IsNeedToSeek(Id(55)));
    EXPECT_FALSE(stream.IsNeedToSeek(""));
    EXPECT_FALSE(SmoothStream("").IsNeedToSeek(Id(0)));

    Write(File("seek_time"), "0");
    EXPECT_FALSE(stream.IsNeedToSeek(Id(0)));
    for (int second = 0; second <= 100; second += 5) {
      Finish(Id(second));
    }
    Finish(Id(500, "audio"));
    Write(File("smooth/QualityLevels(2)/Fragments(video=9000000000)"), "another quality");
    EXPECT_FALSE(stream.IsNeedToSeek(Id(140)));
    EXPECT_FALSE(stream.IsNeedToSeek(Id(150)));
    EXPECT_TRUE(stream.IsNeedToSeek(Id(155)));
    EXPECT_TRUE(stream.IsNeedToSeek(Id(160)));
    EXPECT_FALSE(stream.IsNeedToSeek(Id(550, "audio")));

    Write(File("seek_time"), "60");
    EXPECT_TRUE(stream.IsNeedToSeek(Id(30)));
    EXPECT_FALSE(stream.IsNeedToSeek(Id(60)));
    EXPECT_FALSE(stream.IsNeedToSeek(Id(65)));
    Write(File("seek_time"), "99999999999999999999");
    EXPECT_TRUE(stream.IsNeedToSeek(Id(60)));
  });
}

TEST_F(SmoothFragments, AreComparedWithTheStartWhileNoneExist) {
  On("avoton", [this] {
    const SmoothStream stream(kId);
    Write(File("seek_time"), "60");
    EXPECT_FALSE(stream.IsNeedToSeek(Id(110)));
    EXPECT_TRUE(stream.IsNeedToSeek(Id(115)));
    MakeDirectory(File("smooth/" + std::string(kQuality)));
    EXPECT_FALSE(stream.IsNeedToSeek(Id(110)));
  });
}

TEST_F(SmoothFragments, AreCompleteWhenTheNextOneExists) {
  On("avoton", [this] {
    const auto monitor = StartMonitor();
    const SmoothStream stream(kId);
    EXPECT_FALSE(stream.VerifyFragmentIsReady(Id(10), 0));
    Finish(Id(10));
    Finish(Id(15, "audio"));
    EXPECT_FALSE(stream.VerifyFragmentIsReady(Id(10), 0));
    Finish(Id(15));
    EXPECT_TRUE(stream.VerifyFragmentIsReady(Id(10), 0));
    EXPECT_FALSE(stream.VerifyFragmentIsReady(Id(10), 1));
    EXPECT_FALSE(stream.VerifyFragmentIsReady(Id(10), 4294967295U));
    Finish(Id(20));
    EXPECT_TRUE(stream.VerifyFragmentIsReady(Id(10), 1));
    EXPECT_FALSE(stream.VerifyFragmentIsReady("", 0));
    EXPECT_FALSE(SmoothStream("").VerifyFragmentIsReady(Id(10), 0));
  });
}

TEST_F(SmoothFragments, AreCompleteWhenNoTranscoderRuns) {
  On("avoton", [this] {
    const auto monitor = StartMonitor();
    const SmoothStream stream(kId);
    Finish(Id(10));
    EXPECT_FALSE(stream.VerifyFragmentIsReady(Id(10), 0));
    monitor->Kill(SIGKILL);
    monitor->WaitUntilZombie();
    EXPECT_TRUE(stream.VerifyFragmentIsReady(Id(10), 0));
    EXPECT_EQ(SmoothStream(kId).ReadFragment(Id(10)), Path(File("smooth/" + Id(10))));
  });
}

TEST_F(SmoothFragments, AtATimeWithoutAFragmentAreReadyAtOnce) {
  On("avoton", [this] {
    const auto monitor = StartMonitor();
    const std::string id = std::string(kQuality) + "/Fragments(video=12345)";
    EXPECT_TRUE(SmoothStream(kId).VerifyFragmentIsReady(id, 0));
    const double start = test::Now();
    EXPECT_EQ(SmoothStream(kId).ReadFragment(id), Path(File("smooth/" + id)));
    EXPECT_LT(test::Now() - start, 0.4);
  });
}

TEST_F(SmoothFragments, AreServedTheMomentTheyAreComplete) {
  On("avoton", [this] {
    const double start = test::Now();
    for (int i = 0; i < 5; ++i) {
      const auto monitor = StartMonitor();
      // The directories appear after the request.
      EXPECT_EQ(WaitFor(Id(10),
                        [this] {
                          MakeDirectory(File("smooth"));
                          Finish(Id(10));
                          Finish(Id(15));
                        }),
                Path(File("smooth/" + Id(10))));
      EXPECT_EQ(WaitFor(Id(15), [&] { monitor->Kill(SIGKILL); }), Path(File("smooth/" + Id(15))));
      std::filesystem::remove_all(Path(File("smooth")));
    }
    // Ten looks a second later would take ten seconds.
    EXPECT_LT(test::Now() - start, 5);
  });
}

TEST_F(SmoothFragments, AreSeenInDirectoriesThatAreMadeAgain) {
  On("avoton", [this] {
    const auto monitor = StartMonitor();
    for (int i = 0; i < 3; ++i) {
      Finish(Id(5));
      const double start = test::Now();
      EXPECT_EQ(WaitFor(Id(10),
                        [this] {
                          std::filesystem::remove_all(Path(File("smooth")));
                          Write(File("smooth/aside"), "x");
                          MakeDirectory(File("smooth/" + std::string(kQuality)));
                          std::filesystem::rename(Path(File("smooth/aside")),
                                                  Path(File("smooth/" + Id(15))));
                        }),
                Path(File("smooth/" + Id(10))));
      EXPECT_LT(test::Now() - start, 0.8);
    }
  });
}

TEST_F(SmoothFragments, WithoutATranscoderAreNotWaitedForLong) {
  On("avoton", [this] {
    const double start = test::Now();
    EXPECT_EQ(SmoothStream(kId).ReadFragment(Id(10)), Path(File("smooth/" + Id(10))));
    EXPECT_LT(test::Now() - start, 2);
    EXPECT_TRUE(test::TakeLog().empty());
  });
}

TEST_F(SmoothFragments, AreWaitedForThroughARestart) {
  On("avoton", [this] {
    // Forked before the pipe, whose end it would keep open.
    const auto monitor = StartMonitor();
    unlink(Path(File("monitor.pid")).c_str());
    Write(File("seek_time"), "0");
    const orvo::UniqueFd restart(open(Path(File("seek_time")).c_str(), O_RDONLY | O_CLOEXEC));
    ASSERT_EQ(flock(restart.Get(), LOCK_EX), 0);
    Pipe answer;
    Child request([&] { answer.Write(SmoothStream(kId).ReadFragment(Id(10))); });
    pollfd early{answer.ReadEnd(), POLLIN, 0};
    EXPECT_EQ(poll(&early, 1, 700), 0);
    Write(File("monitor.pid"), std::to_string(monitor->Pid()));
    Finish(Id(10));
    Finish(Id(15));
    EXPECT_EQ(answer.ReadToEnd(), Path(File("smooth/" + Id(10))));
    EXPECT_EQ(request.Wait(), 0);
  });
}

TEST_F(SmoothFragments, AreNeverOutsideTheirFolder) {
  On("avoton", [this] {
    for (const std::string id : {"", "q", "../x", "q/..", "./x", "../../x", "q/r/s", "/q/x", "q//x",
                                 "q/", "/", "..", "../../../../etc/passwd", "q/../../x"}) {
      EXPECT_EQ(SmoothStream(kId).ReadFragment(id), "") << id;
      EXPECT_EQ(test::TakeLogTexts(), List{"smooth_stream:N Bad parameter"}) << id;
    }
    EXPECT_EQ(SmoothStream(kId).ReadFragment(std::string("q/x\0y", 5)), "");
    EXPECT_EQ(SmoothStream("").ReadFragment(Id(0)), "");
    EXPECT_EQ(SmoothStream("unknown").ReadFragment(Id(0)), "");
    // Not even a look, which would tell what is there.
    Write(File("Fragments(video=9000000000)"), "x");
    const auto monitor = StartMonitor();
    EXPECT_FALSE(SmoothStream(kId).VerifyFragmentIsReady("../Fragments(video=0)", 0));
    for (const std::string& name :
         {std::string(5000, 'x'), "Fragments(video=" + std::string(5000, '9')}) {
      const std::string id = "q/" + name;
      SmoothStream(kId).VerifyFragmentIsReady(id, 4294967295U);
      SmoothStream(kId).IsNeedToSeek(id);
    }
  });
}

}  // namespace
