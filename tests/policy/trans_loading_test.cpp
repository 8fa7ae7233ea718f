#include "policy/trans_loading.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstring>
#include <memory>
#include <thread>

#include "support/log_capture.h"
#include "support/processes.h"
#include "support/sysroot.h"

namespace {

using LibMirevo::ForceFFmpegTranscoding;
using LibMirevo::GetMachineTranscodeAndRemux;
using LibMirevo::TransLoading;
using test::Child;
using test::JsonArray;
using test::Pipe;
using test::RegistryEntry;
using List = std::vector<std::string>;

constexpr char kRegistry[] = "/tmp/Mirevo/enabled";

class Registry : public test::Sysroot {
 protected:
  std::string RegistryPath() const { return Path(kRegistry); }
  Json::Value Entries() const { return Sysroot::Registry(); }
};

TEST_F(Registry, StartsEmptyAndIsOpenToEverybody) {
  On("avoton", [this] {
    {
      TransLoading registry;
      EXPECT_TRUE(registry.IsLockSucess());
      EXPECT_FALSE(registry.IsOffineConverting());
    }
    EXPECT_EQ(Read(kRegistry), "[]\n");
    struct stat status {};
    ASSERT_EQ(stat(RegistryPath().c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777, 0777U) << "whatever the umask";
    EXPECT_TRUE(test::TakeLog().empty());
  });
}

TEST_F(Registry, WritesItsEntriesWhenItIsReleased) {
  On("avoton", [this] {
    {
      TransLoading registry;
      EXPECT_TRUE(registry.SaveTransPID(getpid(), false, true));
      EXPECT_EQ(Read(kRegistry), "") << "not yet";
    }
    EXPECT_EQ(Entries(), JsonArray({RegistryEntry(getpid(), false, true)}));
    EXPECT_TRUE(TransLoading().IsOffineConverting());
  });
}

TEST_F(Registry, ForgetsAProcess) {
  On("avoton", [this] {
    Child other(test::SleepUntilKilled);
    SetRegistry(JsonArray({RegistryEntry(getpid(), false), RegistryEntry(other.Pid(), true),
                           RegistryEntry(getpid(), true)}));
    EXPECT_TRUE(TransLoading().RemoveTransPIDLock(getpid()));
    EXPECT_EQ(Entries(), JsonArray({RegistryEntry(other.Pid(), true)}));
    EXPECT_TRUE(TransLoading().RemoveTransPIDLock(INT_MAX)) << "one that is not there";
    EXPECT_EQ(Entries().size(), 1U);
  });
}

TEST_F(Registry, RemovesEntriesOfEndedProcesses) {
  On("avoton", [this] {
    Child zombie([] {});
    zombie.WaitUntilZombie();
    auto gone = std::make_unique<Child>([] {});
    const pid_t gonePid = gone->Pid();
    gone->Wait();
    Pipe release;
    Pipe report;
    std::thread thread([&] {
      const auto id = static_cast<pid_t>(syscall(SYS_gettid));
      report.Write(std::string(reinterpret_cast<const char*>(&id), sizeof(id)));
      release.Read(1);
    });
    pid_t threadId = 0;
    memcpy(&threadId, report.Read(sizeof(threadId)).data(), sizeof(threadId));

    Json::Value extra = RegistryEntry(getpid(), false);
    extra["more"] = "kept";
    Json::Value text = RegistryEntry(1, false);
    text["PID"] = "1";
    Json::Value fraction = RegistryEntry(1, false);
    fraction["PID"] = 1.5;
    Json::Value large = RegistryEntry(1, false);
    large["PID"] = Json::UInt64(4294967297U);
    Json::Value without = RegistryEntry(1, false);
    without.removeMember("PID");
    SetRegistry(JsonArray({RegistryEntry(zombie.Pid(), false), RegistryEntry(gonePid, false),
                           RegistryEntry(threadId, false), RegistryEntry(0, false),
                           RegistryEntry(-1, false), extra, text, fraction, large, without,
                           Json::Value(5), Json::Value("x"), Json::Value(),
                           JsonArray({RegistryEntry(1, false)}), RegistryEntry(1, true)}));
    { const TransLoading registry; }
    EXPECT_EQ(Entries(), JsonArray({extra, RegistryEntry(1, true)}));
    release.Write("x");
    thread.join();
  });
}

TEST_F(Registry, ThatIsDamagedCountsAsEmptyAndIsOverwritten) {
  On("avoton", [this] {
    const List contents = {
        "no json", "[{\"PID\": 1", std::string(200000, '['), std::string(1000, '\0'), "[\xff\xfe",
        "{",       "[1,,2"};
    for (const std::string& content : contents) {
      Write(kRegistry, content);
      test::TakeLog();
      {
        TransLoading registry;
        EXPECT_TRUE(registry.TransEnable(false)) << content.substr(0, 20);
        EXPECT_FALSE(registry.IsOffineConverting());
      }
      const List log = test::TakeLogTexts();
      ASSERT_EQ(log.size(), 2U) << content.substr(0, 20);
      EXPECT_EQ(log[1], "trans_loading:N ReadAndCheckAlive failed");
      EXPECT_EQ(Read(kRegistry), "[]\n") << content.substr(0, 20);
    }
  });
}

TEST_F(Registry, ThatIsNotAnArrayCountsAsEmpty) {
  On("avoton", [this] {
    for (const char* content : {"5", "\"x\"", "null", "true", "{}"}) {
      Write(kRegistry, content);
      EXPECT_TRUE(TransLoading().TransEnable(false)) << content;
      EXPECT_EQ(Read(kRegistry), "[]\n") << content;
    }
  });
}

TEST_F(Registry, ThatIsHugeIsStillRead) {
  On("braswell", [this] {
    Json::Value entries(Json::arrayValue);
    for (int i = 0; i < 20000; ++i) {
      entries.append(RegistryEntry(i % 200 == 0 ? getpid() : INT_MAX - i, true));
    }
    SetRegistry(entries);
    EXPECT_FALSE(TransLoading().TransEnable(true));
    EXPECT_EQ(Entries().size(), 100U);
  });
}

TEST_F(Registry, CannotBeLockedWithoutAPlace) {
  On("avoton", [this] {
    Write("/tmp", "a file where the directory should be");
    {
      TransLoading registry;
      EXPECT_FALSE(registry.IsLockSucess());
      EXPECT_EQ(test::TakeLogTexts(),
                (List{"lock:N Fail to create dir [" + Path("/tmp/Mirevo") + "]",
                      "trans_loading:N TransLoading lock file failed"}));
      EXPECT_FALSE(registry.TransEnable(false));
      EXPECT_FALSE(registry.IsOffineConverting());
      EXPECT_FALSE(registry.SaveTransPID(1, false, false));
      EXPECT_FALSE(registry.RemoveTransPIDLock(1));
      EXPECT_EQ(test::TakeLogTexts(), List(4, "trans_loading:N TransEnable need to lock file"));
    }
    EXPECT_TRUE(test::TakeLog().empty());
  });
}

TEST_F(Registry, LimitsEachKindByThePlatform) {
  const struct {
    const char* platform;
    unsigned software;
    unsigned hardware;
  } rows[] = {{"monaco", 0, 1},    {"braswell", 1, 100}, {"apollolake", 1, 100},
              {"evansport", 1, 1}, {"avoton", 1, 0},     {"x86", 1, 0}};
  for (const auto& row : rows) {
    for (const bool hardware : {false, true}) {
      On(row.platform, [this, &row, hardware] {
        const unsigned limit = hardware ? row.hardware : row.software;
        Json::Value entries(Json::arrayValue);
        // One of the other kind, so that the registry is never empty.
        entries.append(RegistryEntry(getpid(), !hardware));
        for (unsigned used = 0; used < limit; ++used) {
          SetRegistry(entries);
          EXPECT_TRUE(TransLoading().TransEnable(hardware)) << used;
          EXPECT_TRUE(TransLoading().CheckTransEnable(hardware)) << used;
          entries.append(RegistryEntry(getpid(), hardware));
        }
        SetRegistry(entries);
        EXPECT_FALSE(TransLoading().TransEnable(hardware)) << limit;
        EXPECT_FALSE(TransLoading().CheckTransEnable(hardware)) << limit;
        EXPECT_FALSE(hardware ? TransLoading().HardwareTransEnable()
                              : TransLoading().SoftwareTransEnable());
      });
    }
  }
}

TEST_F(Registry, ThatIsEmptyAdmitsEveryKindOfThePlatform) {
  const struct {
    const char* platform;
    bool hardware;
  } rows[] = {{"monaco", true},    {"braswell", true}, {"apollolake", true},
              {"evansport", true}, {"avoton", false},  {"", false}};
  for (const auto& row : rows) {
    On(row.platform, [&row] {
      EXPECT_TRUE(TransLoading().TransEnable(false)) << "even where the limit is 0";
      EXPECT_EQ(TransLoading().TransEnable(true), row.hardware);
    });
  }
}

TEST_F(Registry, CountsOfflineConversionsButNoEntryWithoutAKind) {
  On("avoton", [this] {
    SetRegistry(JsonArray({RegistryEntry(getpid(), false, true)}));
    EXPECT_FALSE(TransLoading().TransEnable(false));
    Json::Value odd = RegistryEntry(getpid(), false);
    odd["hardware_transcode"] = "false";
    Json::Value bare;
    bare["PID"] = getpid();
    SetRegistry(JsonArray({odd, bare}));
    EXPECT_TRUE(TransLoading().TransEnable(false));
  });
}

TEST_F(Registry, RecognisesAnOfflineConversionOnlyByABoolean) {
  On("avoton", [this] {
    Json::Value odd = RegistryEntry(getpid(), false);
    for (const char* value : {"false", "\"true\"", "1", "null"}) {
      odd["offline_conversion"] = test::ParseText(value);
      SetRegistry(JsonArray({odd}));
      EXPECT_FALSE(TransLoading().IsOffineConverting()) << value;
    }
    SetRegistry(JsonArray({odd, RegistryEntry(getpid(), true, true)}));
    EXPECT_TRUE(TransLoading().IsOffineConverting());
  });
}

TEST_F(Registry, AdmitsTheNextWhenThePreviousOneHasDied) {
  On("braswell", [] {
    Child first([] {
      {
        TransLoading registry;
        EXPECT_TRUE(registry.TransEnable(false));
        registry.SaveTransPID(getpid(), false, false);
      }
      test::StopHere();
    });
    ASSERT_TRUE(first.WaitUntilStopped());
    EXPECT_FALSE(TransLoading().TransEnable(false));
    EXPECT_TRUE(TransLoading().TransEnable(true)) << "the other kind has room";
    first.Kill(SIGKILL);
    first.WaitUntilZombie();
    EXPECT_TRUE(TransLoading().TransEnable(false)) << "even before it is reaped";
  });
}

TEST_F(Registry, AdmitsOneOfManyAtTheSameTime) {
  On("avoton", [this] {
    constexpr int kProcesses = 24;
    Pipe start;
    Pipe outcome;
    std::vector<std::unique_ptr<Child>> processes;
    for (int i = 0; i < kProcesses; ++i) {
      processes.push_back(std::make_unique<Child>([&] {
        start.CloseWrite();
        start.Read(1);  // the end of the pipe lets all go
        bool admitted = false;
        {
          TransLoading registry;
          admitted = registry.TransEnable(false) && registry.SaveTransPID(getpid(), false, false);
        }
        outcome.Write(admitted ? "1" : "0");
        test::StopHere();
      }));
    }
    start.CloseWrite();
    const std::string answers = outcome.Read(kProcesses);
    EXPECT_EQ(std::count(answers.begin(), answers.end(), '1'), 1) << answers;
    EXPECT_EQ(Entries().size(), 1U);
  });
}

TEST_F(Registry, IsFreeAgainWhenItsHolderIsKilled) {
  On("avoton", [this] {
    Child keeper(test::SleepUntilKilled);
    SetRegistry(JsonArray({RegistryEntry(keeper.Pid(), true)}));
    Child holder([] {
      TransLoading registry;
      registry.SaveTransPID(getpid(), false, false);
      test::StopHere();
    });
    ASSERT_TRUE(holder.WaitUntilStopped());
    Pipe got;
    Child waiter([&] {
      const TransLoading registry;
      got.Write("x");
    });
    holder.Kill(SIGKILL);
    EXPECT_EQ(got.ReadToEnd(), "x");
    EXPECT_EQ(waiter.Wait(), 0);
    EXPECT_EQ(Entries(), JsonArray({RegistryEntry(keeper.Pid(), true)}))
        << "nothing was written by the one that was killed";
  });
}

TEST_F(Registry, LosesNoOtherEntryWhenAHolderIsKilled) {
  On("braswell", [this] {
    // Enough for more than two pages of text.
    Child keeper(test::SleepUntilKilled);
    Json::Value entries(Json::arrayValue);
    for (int i = 0; i < 150; ++i) {
      entries.append(RegistryEntry(keeper.Pid(), true));
    }
    SetRegistry(entries);
    { const TransLoading registry; }
    for (int round = 0; round < 150; ++round) {
      Pipe running;
      Child victim([&] {
        running.Write("x");
        for (;;) {
          { TransLoading().SaveTransPID(getpid(), false, false); }
          { TransLoading().RemoveTransPIDLock(getpid()); }
        }
      });
      running.Read(1);
      // A little more of its work each time.
      for (int spin = 0; spin < round * 2000; ++spin) {
        asm volatile("" ::: "memory");
      }
      victim.Kill(SIGKILL);
      victim.Wait();
      test::TakeLog();
      const TransLoading registry;
      ASSERT_TRUE(test::TakeLog().empty()) << "round " << round << ": " << Read(kRegistry).size();
      ASSERT_EQ(registry.GetEntries().size(), 150U) << "round " << round;
    }
  });
}

TEST_F(Registry, StaysWholeOnAFullDisk) {
  On("avoton", [this] {
    SetRegistry(JsonArray({RegistryEntry(getpid(), true)}));
    const std::string before = Read(kRegistry);
    // A limit on file sizes is what a full disk looks like to one process.
    Child writer([] {
      signal(SIGXFSZ, SIG_IGN);
      const rlimit none{0, 0};
      ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &none), 0);
      { TransLoading().SaveTransPID(getpid(), false, false); }
      EXPECT_EQ(test::TakeLog().size(), 2U);
    });
    EXPECT_EQ(writer.Wait(), 0);
    EXPECT_EQ(Read(kRegistry), before);
  });
}

TEST_F(Registry, MachineAnswersNeverPromiseTranscoding) {
  const struct {
    const char* cpuinfo;
    bool remux;
  } rows[] = {{"BogoMIPS\t: 1500.00\n", true},
              {"BogoMIPS\t: 1499.99\n", false},
              {"bogomips\t: 9000\n", false},
              {"BogoMIPS\t: fast\n", false},
              {"", false},
              {"BogoMIPS\t: 38400\n", true}};
  for (const auto& row : rows) {
    Write("/proc/cpuinfo", row.cpuinfo);
    for (const bool hasHardware : {false, true}) {
      On(hasHardware ? "monaco" : "avoton", [&] {
        bool transcode = true;
        bool remux = !row.remux;
        bool hardware = !hasHardware;
        GetMachineTranscodeAndRemux(transcode, remux, hardware);
        EXPECT_FALSE(transcode);
        EXPECT_EQ(remux, row.remux) << row.cpuinfo;
        EXPECT_EQ(hardware, hasHardware);
      });
    }
  }
}

TEST_F(Registry, SoftwareIsForcedByThePlatformWithoutVaapi) {
  for (const char* platform : {"avoton", "evansport", ""}) {
    On(platform, [] { EXPECT_TRUE(ForceFFmpegTranscoding("matroska,webm", "h264", "High")); });
  }
  On("monaco", [] { EXPECT_FALSE(ForceFFmpegTranscoding("swf", "vp9", "")); });
}

TEST_F(Registry, SoftwareIsForcedOnVaapiForFilmsThatItsPipelineCannotDecode) {
  const struct {
    const char* container;
    const char* codec;
    const char* profile;
    bool forced;
  } rows[] = {
      {"matroska,webm", "hevc", "Main", false},
      {"matroska,webm", "hevc", "Main 10", true},
      {"matroska,webm", "h264", "High", false},
      {"matroska,webm", "h264", "High 10", true},
      {"matroska,webm", "h264", "Main 10", false},
      {"matroska,webm", "hevc", "High 10", false},
      {"matroska,webm", "vp9", "", true},
      {"avi", "dvvideo", "", true},
      {"avi", "", "", false},
      {"avi", "mpeg4", "", false},
      {"swf", "", "", true},
      {"rm", "h264", "High", true},
      {"swf,x", "h264", "High", false},
  };
  for (const char* platform : {"braswell", "apollolake"}) {
    On(platform, [&rows] {
      for (const auto& row : rows) {
        EXPECT_EQ(ForceFFmpegTranscoding(row.container, row.codec, row.profile), row.forced)
            << row.container << " " << row.codec << " " << row.profile;
      }
    });
  }
}

TEST_F(Registry, SoftwareIsForcedOnVaapiByTheSettings) {
  Write("/var/packages/Mirevo/etc/vaapi_ffmpeg", R"({"enable": true})");
  On("braswell", [] { EXPECT_TRUE(ForceFFmpegTranscoding("avi", "mpeg4", "")); });
  On("apollolake", [] { EXPECT_FALSE(ForceFFmpegTranscoding("avi", "mpeg4", "")); });
  Write("/var/packages/Mirevo/etc/advanced.conf", R"({"hardware_transcode": false})");
  On("apollolake", [] { EXPECT_TRUE(ForceFFmpegTranscoding("avi", "", "")); });
}

}  // namespace
