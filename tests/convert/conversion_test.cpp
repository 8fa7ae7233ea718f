// The conversion service, over real films.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sched.h>
#include <sys/mount.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <memory>

#include "convert/queue.h"
#include "convert/recipe.h"
#include "convert/work_folder.h"
#include "metadata/video_metadata.h"
#include "platform/plat.h"
#include "policy/trans_loading.h"
#include "support/file_changes.h"
#include "support/processes.h"
#include "support/sysroot.h"

namespace {

namespace fs = std::filesystem;
using convert::Item;
using convert::Queue;
using convert::State;
using LibOrvoQMX::VideoMetaData;

constexpr char kPidFile[] = "/run/orvovideoconversiond.pid";
constexpr char kRegistry[] = "/tmp/Mirevo/enabled";
constexpr int kSeconds = 25;
constexpr int kPictures = kSeconds * 12;

class FilmConversion : public test::Sysroot {
 protected:
  void SetUp() override {
    Sysroot::SetUp();
    queue_ = std::make_unique<Queue>();
    fs::create_symlink(ORVO_TEST_TARGET, Path("/var/packages/Mirevo/target"));
  }
  void TearDown() override {
    service_.reset();
    test::ReapAll();
    Sysroot::TearDown();
  }

  // A film of three pieces.
  std::string MakeFilm(const std::string& name) const {
    const std::string film = Path("/volume1/" + name);
    EXPECT_EQ(PlatExec("/usr/bin/ffmpeg", "-nostdin", "-v", "error", "-f", "lavfi", "-i",
                       "testsrc2=s=160x90:r=12:d=" + std::to_string(kSeconds), "-f", "lavfi", "-i",
                       "sine=d=" + std::to_string(kSeconds), "-c:v", "libx264", "-preset",
                       "ultrafast", "-g", "48", "-c:a", "ac3", film),
              0);
    return film;
  }
  int64_t Add(const std::string& film) {
    const auto id = queue_->Add(film, Path("/volume1"), "mp4");
    EXPECT_TRUE(id);
    return id.value_or(0);
  }

  // `prepare` runs in the service's process.
  void StartService(const std::function<void()>& prepare = [] {}) {
    service_ = std::make_unique<test::Child>([&prepare] {
      prepare();
      const char* const program = ORVO_TEST_TARGET "/bin/orvovideoconversiond";
      execl(program, program, nullptr);
    });
    Until(kPidFile, [this] { return Read(kPidFile) == std::to_string(service_->Pid()) + "\n"; });
  }
  void KillService() {
    service_->Kill(SIGKILL);
    service_->Wait();
    service_.reset();
  }

  // Waits until `holds`, and looks at each change below the folder of `path`.
  void Until(const std::string& path, const std::function<bool()>& holds) const {
    if (HasFailure()) {
      return;
    }
    test::AwaitChange(fs::path(Path(path)).parent_path(), holds);
  }
  void UntilState(int64_t id, State state) const {
    Until(std::string(convert::kQueueFolder) + "/queue.db", [&] {
      const auto item = queue_->Find(id);
      return item && item->state == state;
    });
  }
  void UntilBegun(int64_t id) const {
    Until(std::string(convert::kQueueFolder) + "/queue.db",
          [&] { return queue_->Find(id)->state != State::kWaiting; });
  }
  // The process that is registered as a conversion; 0 for none.
  pid_t Registered() const {
    const Json::Value entries = Registry();
    const Json::Value first = entries.empty() ? Json::Value() : entries[0];
    const bool isConversion = first["offline_conversion"] == true;
    EXPECT_TRUE(!isConversion || first["hardware_transcode"] == false);
    return isConversion ? first["PID"].asInt() : 0;
  }
  // Waits for the conversion that the register names.
  pid_t UntilRegistered() const {
    Until(kRegistry, [this] { return Registered() != 0; });
    return Registered();
  }
  static std::string StatusOf(pid_t pid, const std::string& key) {
    const std::string text = test::ReadWhole("/proc/" + std::to_string(pid) + "/status");
    const size_t start = text.find("\n" + key + ":\t");
    return start == std::string::npos ? "" : text.substr(start + key.size() + 3, 16);
  }
  // A process that waits for a processor stops when it gets one, which takes time on a busy
  // machine. Until then the signal is pending, and it does not return to its own code. The state is
  // read last: what took the signal has stopped.
  static bool IsStopped(pid_t pid) {
    constexpr unsigned long long kStop = 1ULL << (SIGSTOP - 1);
    const bool isPending =
        (std::strtoull(StatusOf(pid, "ShdPnd").c_str(), nullptr, 16) & kStop) != 0;
    return isPending || StatusOf(pid, "State").starts_with('T');
  }

  // Waits until no entry of the register has this number.
  void UntilGone(pid_t transcoder) const {
    Until(kRegistry, [&] { return Registered() != transcoder; });
  }
  // A viewer forces the service to give way, and leaves after `meanwhile`.
  void Visit(const std::function<void()>& meanwhile) {
    test::Child viewer(test::SleepUntilKilled);
    LibMirevo::TransLoading().SaveTransPID(viewer.Pid(), false, false);
    Service().Kill(SIGUSR1);
    meanwhile();
    viewer.Kill(SIGKILL);
    viewer.Wait();
  }

  // Is this the whole film, in a file that plays while it loads?
  void ExpectWhole(int64_t id) const {
    const Item item = *queue_->Find(id);
    ASSERT_EQ(item.state, State::kReady) << item.reason;
    const std::string result = convert::WorkFolder(item.folder).Result();
    VideoMetaData known;
    ASSERT_TRUE(known.LoadFile(result));
    EXPECT_EQ(known.GetVideoCodecName(), "h264");
    EXPECT_EQ(known.GetAudioCodecName(), "aac");
    EXPECT_EQ(known.GetVideoResolutionX(), 160U);
    EXPECT_EQ(known.GetDuration(), unsigned{kSeconds});
    EXPECT_EQ(Pictures(result), kPictures);
    const std::string bytes = test::ReadWhole(result);
    EXPECT_LT(bytes.find("moov"), bytes.find("mdat"));
    EXPECT_TRUE(convert::WorkFolder(item.folder).Pieces().empty());
  }
  // How many pictures decode without an error.
  int Pictures(const std::string& film) const {
    const std::string list = Path("/pictures");
    const std::string command =
        "ffprobe -v error -count_frames -select_streams v "
        "-show_entries stream=nb_read_frames -of csv=p=0 '" +
        film + "' > '" + list + "' 2>&1";
    EXPECT_EQ(PlatExec("/bin/sh", "-c", command), 0);
    return static_cast<int>(std::strtol(test::ReadWhole(list).c_str(), nullptr, 10));
  }

  Queue& TheQueue() { return *queue_; }
  test::Child& Service() { return *service_; }

 private:
  std::unique_ptr<Queue> queue_;
  std::unique_ptr<test::Child> service_;
};

TEST_F(FilmConversion, MakesAFileThatPlaysEverywhere) {
  const int64_t id = Add(MakeFilm("film.mkv"));
  StartService();
  UntilRegistered();
  UntilState(id, State::kReady);
  ExpectWhole(id);
  EXPECT_EQ(Registry().size(), 0U);
  Service().Kill(SIGTERM);
  EXPECT_EQ(Service().Wait(), 0);
  EXPECT_FALSE(Exists(kPidFile));
}

TEST_F(FilmConversion, GivesWayToAViewerAndGoesOnFromItsPlace) {
  const int64_t id = Add(MakeFilm("film.mkv"));
  StartService();
  const pid_t transcoder = UntilRegistered();
  Visit([&] {
    UntilState(id, State::kPaused);
    EXPECT_EQ(Registered(), 0);
    EXPECT_TRUE(IsStopped(transcoder));
  });
  EXPECT_EQ(UntilRegistered(), transcoder) << "the same process goes on";
  UntilState(id, State::kReady);
  ExpectWhole(id);
}

TEST_F(FilmConversion, WaitsForTheViewersThatAreThere) {
  test::Child viewer(test::SleepUntilKilled);
  SetRegistry(test::JsonArray({test::RegistryEntry(viewer.Pid(), true)}));
  const int64_t id = Add(MakeFilm("film.mkv"));
  StartService();
  TheQueue().SetPaused(true);
  EXPECT_EQ(TheQueue().Find(id)->state, State::kWaiting);
  TheQueue().SetPaused(false);
  EXPECT_EQ(TheQueue().Find(id)->state, State::kWaiting);
  viewer.Kill(SIGKILL);
  viewer.Wait();
  UntilState(id, State::kReady);
}

TEST_F(FilmConversion, StopsWhileTheOwnerHasPausedIt) {
  const int64_t id = Add(MakeFilm("film.mkv"));
  StartService();
  const pid_t transcoder = UntilRegistered();
  TheQueue().SetPaused(true);
  UntilState(id, State::kPaused);
  EXPECT_TRUE(IsStopped(transcoder));
  TheQueue().SetPaused(false);
  UntilState(id, State::kReady);
  ExpectWhole(id);
}

// Only this process and those below it see the volume.
void MountSmallVolume(const std::string& folder) {
  fs::create_directories(folder);
  const bool isMounted = unshare(CLONE_NEWNS) == 0 &&
                         mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0 &&
                         mount("tmpfs", folder.c_str(), "tmpfs", 0, "size=64k,mode=0700") == 0;
  if (!isMounted) {
    _exit(1);
  }
}

TEST_F(FilmConversion, WaitsForSpaceAndTriesTheNextFilm) {
  if (geteuid() != 0) {
    GTEST_SKIP() << "needs root";
  }
  const std::string film = MakeFilm("film.mkv");
  fs::copy_file(film, Path("/volume1/other.mkv"));
  const std::vector<int64_t> ids = {Add(film), Add(Path("/volume1/other.mkv"))};
  StartService([this] { MountSmallVolume(Path("/volume1/@conversions")); });
  for (const int64_t id : ids) {
    Until(std::string(convert::kQueueFolder) + "/queue.db", [&] {
      const Item item = *TheQueue().Find(id);
      return item.state == State::kWaiting && !item.reason.empty();
    });
    EXPECT_EQ(TheQueue().Find(id)->reason, "The volume of the result is full.");
  }
  Service().Kill(SIGTERM);
  EXPECT_EQ(Service().Wait(), 0);
  EXPECT_EQ(Registry().size(), 0U);
}

TEST_F(FilmConversion, KeepsAllSoundsAndTheSubtitlesOfText) {
  const std::string plain = MakeFilm("plain.mkv");
  Write("/volume1/text.srt", "1\n00:00:02,000 --> 00:00:04,000\nHello\n");
  const std::string film = Path("/volume1/film.mkv");
  ASSERT_EQ(PlatExec("/usr/bin/ffmpeg", "-nostdin", "-v", "error", "-i", plain, "-i",
                     Path("/volume1/text.srt"), "-map", "0", "-map", "0:a", "-map", "1", "-c",
                     "copy", "-metadata:s:a:0", "language=ger", "-metadata:s:a:1", "language=fre",
                     "-metadata:s:s:0", "language=eng", film),
            0);
  const int64_t id = Add(film);
  StartService();
  UntilState(id, State::kReady);
  ExpectWhole(id);
  VideoMetaData known;
  ASSERT_TRUE(known.LoadFile(convert::WorkFolder(TheQueue().Find(id)->folder).Result()));
  const auto sounds = convert::SoundsOf(known);
  ASSERT_EQ(sounds.size(), 2U);
  EXPECT_EQ(sounds[0]["language"], "ger");
  EXPECT_EQ(sounds[1]["language"], "fre");
  const auto texts = convert::TextsOf(known);
  ASSERT_EQ(texts.size(), 1U);
  EXPECT_EQ(texts[0]["language"], "eng");
}

TEST_F(FilmConversion, EndsAConversionThatIsRemoved) {
  const int64_t id = Add(MakeFilm("film.mkv"));
  StartService();
  UntilRegistered();
  TheQueue().Remove(id);
  Until(kRegistry, [this] { return Registered() == 0; });
  Until(std::string(convert::kQueueFolder) + "/queue.db",
        [this] { return TheQueue().Removed().empty(); });
  EXPECT_FALSE(Exists("/volume1/@conversions/" + std::to_string(id)));
}

TEST_F(FilmConversion, ShowsNoResultThatIsNotTheWholeFilm) {
  const int64_t whole = Add(MakeFilm("film.mkv"));
  fs::remove(Path("/var/packages/Mirevo/target"));
  // A transcoder that makes the first piece only.
  WriteScript("/var/packages/Mirevo/target/bin/ffmpeg",
              "for last; do :; done\n"
              "exec /usr/bin/ffmpeg -nostdin -v error -y -t 5 -i '" +
                  Path("/volume1/film.mkv") +
                  "' -c:v copy -c:a aac -f mpegts \"${last%\\%05d.ts}00000.ts\"");
  StartService();
  UntilState(whole, State::kFailed);
  const Item item = *TheQueue().Find(whole);
  EXPECT_NE(item.reason.find("5 s"), std::string::npos) << item.reason;
  EXPECT_FALSE(fs::exists(convert::WorkFolder(item.folder).Result()));
}

TEST_F(FilmConversion, TellsWhyAFilmCannotBeConverted) {
  const int64_t missing = Add(Path("/volume1/missing.mkv"));
  Write("/volume1/text.mkv", "no film");
  const int64_t text = Add(Path("/volume1/text.mkv"));
  Write("/outside.mkv", "x");
  fs::create_symlink(Path("/outside.mkv"), Path("/volume1/link.mkv"));
  const int64_t link = Add(Path("/volume1/link.mkv"));
  StartService();
  for (const int64_t id : {missing, text, link}) {
    UntilState(id, State::kFailed);
    EXPECT_NE(TheQueue().Find(id)->reason, "");
  }
}

// Each conversion is interrupted once: by the service's sudden end, by that of its transcoder, or
// by a viewer.
TEST_F(FilmConversion, TenInterruptedConversionsEndAsTenWholeFilms) {
  const std::string film = MakeFilm("0.mkv");
  std::vector<int64_t> ids = {Add(film)};
  for (int i = 1; i < 10; ++i) {
    fs::copy_file(film, Path("/volume1/" + std::to_string(i) + ".mkv"));
    ids.push_back(Add(Path("/volume1/" + std::to_string(i) + ".mkv")));
  }
  StartService();
  for (size_t i = 0; i < ids.size(); ++i) {
    UntilBegun(ids[i]);
    const pid_t transcoder = Registered();
    if (i % 5 == 4 && transcoder > 0) {
      Visit([&] { UntilGone(transcoder); });
    } else if (i % 5 == 3 && transcoder > 0) {
      kill(transcoder, SIGKILL);
    } else {
      KillService();
      StartService();
    }
    UntilState(ids[i], State::kReady);
  }
  for (const int64_t id : ids) {
    ExpectWhole(id);
  }
}

}  // namespace
