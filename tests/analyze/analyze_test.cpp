// The program that stores key frame times, over real films.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/inotify.h>
#include <sys/stat.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>
#include <sstream>

#include "platform/io.h"
#include "platform/plat.h"
#include "platform/unique_fd.h"
#include "preprocess/preprocess_helper.h"
#include "preprocess/preprocess_result.h"
#include "support/processes.h"
#include "support/sysroot.h"

namespace {

namespace fs = std::filesystem;
using LibOrvoQMX::preprocess::PreprocessHelper;
using LibOrvoQMX::preprocess::PreprocessResultWrapper;
using LibOrvoQMX::preprocess::PreprocessUtil;
using Times = std::vector<double>;

constexpr size_t kLongFilm = 100 << 20;

class FilmAnalysis : public test::Sysroot {
 protected:
  // A film's copy, whose folder may be written to.
  std::string Copy(const std::string& name) const {
    fs::copy_file(test::Film(name), Path("/volume1/" + name));
    return Path("/volume1/" + name);
  }
  int Analyze(const std::string& film) const {
    test::Child program([&] {
      const int log = open(Path("/stderr").c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
      dup2(log, STDERR_FILENO);
      execl(ORVO_TEST_ANALYZE, ORVO_TEST_ANALYZE, film.c_str(), nullptr);
    });
    return program.Wait();
  }
  // The result of a film; the test fails where there is none.
  PreprocessResultWrapper ResultOf(const std::string& name) const {
    const std::string film = Copy(name);
    EXPECT_EQ(Analyze(film), 0) << Read("/stderr");
    PreprocessResultWrapper result;
    const std::string path = PreprocessUtil::GetPreprocessResultPath(film);
    EXPECT_TRUE(result.ReadFromFile(path));
    const auto folder = fs::directory_iterator(fs::path(path).parent_path());
    EXPECT_EQ(std::distance(fs::begin(folder), fs::end(folder)), 1) << "nothing else is left";
    return result;
  }
  // What ffprobe reads of a film's first video.
  Times Probed(const std::string& name) const {
    const std::string command =
        "ffprobe -v error -select_streams v:0 -show_entries packet=pts_time,dts_time,flags "
        "-of csv=p=0 '" +
        test::Film(name) + "' | awk -F, '/K/ {print ($1 == \"N/A\" ? $2 : $1)}' > " +
        Path("/probed");
    EXPECT_EQ(PlatExec("/bin/sh", "-c", command), 0);
    Times times;
    std::istringstream lines(Read("/probed"));
    for (double time = 0; lines >> time;) {
      times.push_back(time);
    }
    return times;
  }
};

TEST_F(FilmAnalysis, FindsEveryKeyFrameInEveryContainer) {
  const struct {
    const char* name;
    double end;
  } films[] = {{"h264_aac.mp4", 60}, {"h264_ac3.mkv", 60},  {"hevc10_aac.mov", 30},
               {"mpeg2_mp2.ts", 30}, {"mpeg4_mp3.avi", 30}, {"vp9_opus.webm", 30},
               {"portrait.mp4", 60}, {"two_audio.mkv", 60}};
  for (const auto& film : films) {
    SCOPED_TRACE(film.name);
    const PreprocessResultWrapper result = ResultOf(film.name);
    const Times probed = Probed(film.name);
    const Times times = result.GetAllKeyframePtsTime();
    ASSERT_EQ(times.size(), probed.size());
    for (size_t i = 0; i < times.size(); ++i) {
      EXPECT_NEAR(times[i], probed[i] - probed[0], 0.0001);
    }
    EXPECT_NEAR(result.end_time(), film.end, 0.05);
    EXPECT_TRUE(PreprocessHelper(Path("/volume1/") + film.name, 8).IsAvailable());
  }
}

TEST_F(FilmAnalysis, FindsWhatADamagedFilmStillHas) {
  const PreprocessResultWrapper result = ResultOf("truncated.mkv");
  EXPECT_EQ(result.GetAllKeyframePtsTime().size(), Probed("truncated.mkv").size());
}

TEST_F(FilmAnalysis, LeavesNothingForWhatIsNoFilm) {
  for (const char* name : {"empty.mkv", "zeros.mkv", "text.mkv", "truncated.mp4", "no_video.mka",
                           "playlist.mkv", "script.mkv"}) {
    const std::string film = Copy(name);
    EXPECT_EQ(Analyze(film), 1) << name;
    EXPECT_EQ(Read("/stderr").rfind(film + ": ", 0), 0U) << Read("/stderr");
  }
  EXPECT_EQ(Analyze(Path("/volume1/missing.mkv")), 1);
  EXPECT_FALSE(Exists("/volume1/@ea"));
}

TEST_F(FilmAnalysis, LeavesAnOlderResultWhereItCannotWrite) {
  const std::string film = Copy("h264_aac.mp4");
  Write("/volume1/@ea/h264_aac.mp4/ORVOVIDEO_PREPROCESS_V1/in_the_way", "");
  EXPECT_EQ(Analyze(film), 1);
  EXPECT_NE(Read("/stderr").find("cannot write"), std::string::npos);
  EXPECT_TRUE(Exists("/volume1/@ea/h264_aac.mp4/ORVOVIDEO_PREPROCESS_V1/in_the_way"));
  const auto folder = fs::directory_iterator(Path("/volume1/@ea/h264_aac.mp4"));
  EXPECT_EQ(std::distance(fs::begin(folder), fs::end(folder)), 1);
}

// Whoever may write to a media folder can put links beside a film.
TEST_F(FilmAnalysis, WritesNothingWhereALinkBesideTheFilmLeads) {
  const std::string film = Copy("h264_aac.mp4");
  MakeDirectory("/elsewhere");
  for (const std::string link : {"/volume1/@ea", "/volume1/@ea/h264_aac.mp4"}) {
    fs::remove_all(Path("/volume1/@ea"));
    fs::create_directories(fs::path(Path(link)).parent_path());
    fs::create_directory_symlink(Path("/elsewhere"), Path(link));
    EXPECT_EQ(Analyze(film), 0) << Read("/stderr");
    EXPECT_TRUE(fs::is_empty(Path("/elsewhere"))) << link;
    EXPECT_TRUE(PreprocessHelper(film, 8).IsAvailable()) << "the service has a folder of its own";
    fs::remove(Path(link));
  }
}

TEST_F(FilmAnalysis, WritesToNoFileThatALinkInPlaceOfItsOwnNames) {
  const std::string film = Copy("h264_aac.mp4");
  Write("/accounts", "the accounts");
  MakeDirectory("/volume1/@ea/h264_aac.mp4");
  test::Child program([&] {
    // The number stays the same when the program begins.
    const std::string aside =
        Path("/volume1/@ea/h264_aac.mp4/ORVOVIDEO_PREPROCESS_V1.") + std::to_string(getpid());
    if (symlink(Path("/accounts").c_str(), aside.c_str()) == 0) {
      execl(ORVO_TEST_ANALYZE, ORVO_TEST_ANALYZE, film.c_str(), nullptr);
    }
  });
  EXPECT_EQ(program.Wait(), 0);
  EXPECT_EQ(Read("/accounts"), "the accounts");
  EXPECT_TRUE(fs::is_regular_file(Path("/volume1/@ea/h264_aac.mp4/ORVOVIDEO_PREPROCESS_V1")));
}

TEST_F(FilmAnalysis, LeavesNothingWhenItIsInterrupted) {
  const std::string film = Path("/volume1/film.ts");
  const std::string minute = test::ReadWhole(test::Film("mpeg2_mp2.ts"));
  {
    // Far more than is read between the first access and the signal.
    const orvo::UniqueFd file(open(film.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600));
    for (size_t size = 0; size < kLongFilm; size += minute.size()) {
      ASSERT_TRUE(orvo::WriteAll(file.Get(), minute));
    }
  }
  const orvo::UniqueFd accesses(inotify_init1(IN_CLOEXEC));
  ASSERT_GE(inotify_add_watch(accesses.Get(), film.c_str(), IN_ACCESS), 0);
  test::Child program([&] { execl(ORVO_TEST_ANALYZE, ORVO_TEST_ANALYZE, film.c_str(), nullptr); });
  inotify_event first{};
  ASSERT_EQ(read(accesses.Get(), &first, sizeof(first)), ssize_t{sizeof(first)});
  program.Kill(SIGTERM);
  EXPECT_EQ(program.Wait(), 128 + SIGTERM);
  test::ReapAll();  // its reader, which ends with it
  EXPECT_FALSE(Exists("/volume1/@ea"));
}

}  // namespace
