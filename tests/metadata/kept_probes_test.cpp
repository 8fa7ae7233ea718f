#include "metadata/kept_probes.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <optional>

#include "metadata/video_metadata.h"
#include "support/log_capture.h"
#include "support/sysroot.h"
#include "util/md5.h"

namespace {

namespace fs = std::filesystem;

using LibOrvoQMX::FindProbe;
using LibOrvoQMX::VideoMetaData;
using orvo::FileState;

void Keep(const std::string& path, const FileState& state, const Json::Value& document) {
  LibOrvoQMX::KeepProbe(orvo::MediaFile::Open(path), state, document);
}

constexpr char kFolder[] = "/var/packages/Mirevo/cache/probes";
constexpr unsigned kMadeUpDuration = 4711;

class FilmKept : public test::Sysroot {
 protected:
  void SetUp() override {
    Sysroot::SetUp();
    MakeDirectory("/var/packages/Mirevo");
    Forget();
  }

  // The state of a file that might have been made a moment ago, as it will be in a while.
  static FileState State(const std::string& path) {
    return {FileState::Of(path).value().text, true};
  }

  // The process remembers one film; this makes it another one.
  static void Forget() {
    Keep("/bin/sh", {FileState::Of("/bin/sh").value().text, false}, Json::Value(Json::objectValue));
  }

  static Json::Value Probe(const std::string& path) {
    Json::Value document(Json::objectValue);
    EXPECT_TRUE(VideoMetaData::ReadMetaDataFromFFMPEG(path, document)) << path;
    return document;
  }

  static bool IsKnown(const std::string& path) {
    Json::Value document(Json::objectValue);
    return FindProbe(path, State(path), document);
  }

  static bool IsKept(const std::string& path) {
    Forget();
    return IsKnown(path);
  }

  // No probe would find this.
  static Json::Value MadeUp() {
    Json::Value document(Json::objectValue);
    document["duration"] = kMadeUpDuration;
    document["track_info"] = Json::Value(Json::objectValue);
    return document;
  }

  std::string FileFor(const std::string& film) const {
    return std::string(kFolder) + "/" + LibMirevo::GetMD5(film) + ".json";
  }

  // Changes the kept file of a film as its own author could.
  void Rewrite(const std::string& film, const std::string& from, const std::string& to) const {
    std::string body = Read(FileFor(film)).substr(32);
    const auto place = body.find(from);
    ASSERT_NE(place, std::string::npos) << from << " in " << body;
    body.replace(place, from.size(), to);
    Write(FileFor(film), LibMirevo::GetMD5(body) + body);
  }

  const std::string film_ = test::Film("h264_aac.mp4");
};

TEST_F(FilmKept, IsTheSameAsTheProbeResult) {
  for (const char* name : {"h264_aac.mp4", "h264_ac3.mkv", "mpeg4_mp3.avi", "mpeg2_mp2.ts",
                           "vp9_opus.webm", "two_audio.mkv", "portrait.mp4", "no_video.mka"}) {
    const std::string film = test::Film(name);
    const Json::Value fresh = Probe(film);
    Keep(film, State(film), fresh);
    ASSERT_TRUE(IsKept(film)) << name;
    Forget();
    EXPECT_EQ(Probe(film), fresh) << name;
  }
}

TEST_F(FilmKept, IsReadWithoutOpeningTheFilm) {
  Keep(film_, State(film_), MadeUp());
  Forget();
  const Json::Value document = Probe(film_);
  EXPECT_EQ(document["duration"], kMadeUpDuration);
  EXPECT_EQ(document["path"], film_);
  EXPECT_EQ(document["filesize"], std::to_string(fs::file_size(film_)));
}

TEST_F(FilmKept, KeepsUnsignedNumbersUnsigned) {
  Json::Value document = MadeUp();
  document["bitrate"] = static_cast<Json::Int64>(5000000000);
  document["start_time"] = 4000000000U;
  Keep(film_, State(film_), document);
  Forget();
  const Json::Value read = Probe(film_);
  EXPECT_EQ(read["duration"].type(), Json::uintValue);
  EXPECT_EQ(read["start_time"], document["start_time"]);
  EXPECT_EQ(read["bitrate"], document["bitrate"]);
}

TEST_F(FilmKept, IsWhatWasProbed) {
  if (!FileState::Of(film_).value().isSettled) {
    GTEST_SKIP() << "needs a film that was not made just now";
  }
  Probe(film_);
  EXPECT_TRUE(IsKept(film_));
}

TEST_F(FilmKept, BelongsToTheUserAlone) {
  Keep(film_, State(film_), MadeUp());
  struct stat status {};
  ASSERT_EQ(stat(Path(kFolder).c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 07777, 0700U);
  ASSERT_EQ(stat(Path(FileFor(film_)).c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 07777, 0600U);
}

TEST_F(FilmKept, IsRememberedIfNothingCanBeWritten) {
  fs::remove_all(Path("/var/packages/Mirevo"));
  Keep(film_, State(film_), MadeUp());
  EXPECT_TRUE(IsKnown(film_));
  EXPECT_FALSE(IsKept(film_));
  EXPECT_EQ(Probe(film_)["duration"], 60U);
  EXPECT_FALSE(Exists("/var/packages/Mirevo"));
  EXPECT_TRUE(test::TakeLog().empty());
}

TEST_F(FilmKept, IsForgottenInAnotherState) {
  Json::Value document(Json::objectValue);
  Keep(film_, State(film_), MadeUp());
  EXPECT_FALSE(FindProbe(film_, {"another", true}, document));
  Forget();
  EXPECT_FALSE(FindProbe(film_, {"another", true}, document));
  EXPECT_TRUE(document.empty());
  EXPECT_TRUE(IsKept(film_));
}

TEST_F(FilmKept, IsReplacedForTheNextState) {
  Write("/film.mkv", "one");
  Keep(Path("/film.mkv"), State(Path("/film.mkv")), MadeUp());
  EXPECT_TRUE(IsKept(Path("/film.mkv")));
  Write("/film.mkv", "another");
  EXPECT_FALSE(IsKnown(Path("/film.mkv")));
  Keep(Path("/film.mkv"), State(Path("/film.mkv")), MadeUp());
  EXPECT_TRUE(IsKept(Path("/film.mkv")));
  EXPECT_EQ(std::distance(fs::directory_iterator(Path(kFolder)), fs::directory_iterator()), 2)
      << "the lock, and one file for the film";
}

TEST_F(FilmKept, IsNotStoredIfTheFilmChangedDuringTheProbe) {
  Keep(film_, {"as it was", true}, MadeUp());
  EXPECT_FALSE(IsKnown(film_));
  EXPECT_FALSE(Exists(kFolder));
}

TEST_F(FilmKept, IsNotStoredIfTheFilmHasJustChanged) {
  Write("/film.mkv", "new");
  Keep(Path("/film.mkv"), FileState::Of(Path("/film.mkv")).value(), MadeUp());
  EXPECT_TRUE(IsKnown(Path("/film.mkv"))) << "within the process";
  EXPECT_FALSE(IsKept(Path("/film.mkv")));
}

TEST_F(FilmKept, IsNotStoredForAFileThatIsNotAFilm) {
  Json::Value document(Json::objectValue);
  for (int i = 0; i < 2; ++i) {
    EXPECT_FALSE(VideoMetaData::ReadMetaDataFromFFMPEG(test::Film("text.mkv"), document));
    EXPECT_EQ(test::TakeLog().size(), 1U) << "probed each time";
  }
  EXPECT_FALSE(Exists(kFolder));
}

TEST_F(FilmKept, IsNotStoredIfJsonCannotHoldIt) {
  Json::Value document = MadeUp();
  document["track_info"]["title"] = "caf\xe9";
  Keep(film_, State(film_), document);
  EXPECT_TRUE(IsKnown(film_));
  EXPECT_FALSE(IsKept(film_));
}

TEST_F(FilmKept, IsNotBelievedWhenItIsDamaged) {
  Keep(film_, State(film_), MadeUp());
  const std::string whole = Read(FileFor(film_));
  ASSERT_GT(whole.size(), 100U);
  for (size_t place = 0; place < whole.size(); place += 7) {
    std::string damaged = whole;
    damaged[place] ^= 1;
    Write(FileFor(film_), damaged);
    EXPECT_FALSE(IsKept(film_)) << "byte " << place;
    Write(FileFor(film_), whole.substr(0, place));
    EXPECT_FALSE(IsKept(film_)) << "cut to " << place;
  }
  Write(FileFor(film_), whole);
  EXPECT_TRUE(IsKept(film_));
}

TEST_F(FilmKept, IsNotBelievedInAnotherForm) {
  for (const char* body : {"[]", "5", "{}", R"({"authors":5,"result":{}})",
                           R"({"authors":{},"result":5})", R"({"authors":{"/bin/sh":{}}})"}) {
    Write(FileFor(film_), LibMirevo::GetMD5(body) + body);
    EXPECT_FALSE(IsKept(film_)) << body;
  }
}

TEST_F(FilmKept, IsProbedAgainByAnotherProbe) {
  const struct {
    const char* from;
    const char* to;
  } changes[] = {{"\"version\":2", "\"version\":3"},
                 {"libavformat", "libavgone"},
                 {"\"path\":\"", "\"path\":\"/other"},
                 {"\"state\":\"", "\"state\":\"9"}};
  for (const auto& change : changes) {
    Keep(film_, State(film_), MadeUp());
    ASSERT_TRUE(IsKept(film_));
    Rewrite(film_, change.from, change.to);
    EXPECT_FALSE(IsKept(film_)) << change.to;
  }
}

TEST_F(FilmKept, IsProbedAgainByAnotherReleaseOfFfmpeg) {
  Keep(film_, State(film_), MadeUp());
  const Json::Value kept = test::ParseText(Read(FileFor(film_)).substr(32));
  ASSERT_GE(kept["authors"].size(), 4U);
  for (const std::string& author : kept["authors"].getMemberNames()) {
    const std::string state = kept["authors"][author].asString();
    Keep(film_, State(film_), MadeUp());
    Rewrite(film_, state, "1" + state);
    EXPECT_FALSE(IsKept(film_)) << author;
  }
}

TEST_F(FilmKept, IsNotBelievedInAFolderThatOthersMayWrite) {
  Keep(film_, State(film_), MadeUp());
  const std::string file = Path(FileFor(film_));
  for (const mode_t mode : {0620, 0602, 0666}) {
    ASSERT_EQ(chmod(file.c_str(), mode), 0);
    EXPECT_FALSE(IsKept(film_)) << mode;
  }
  ASSERT_EQ(chmod(file.c_str(), 0600), 0);
  EXPECT_TRUE(IsKept(film_));
  fs::rename(file, Path("/elsewhere"));
  fs::create_symlink(Path("/elsewhere"), file);
  EXPECT_FALSE(IsKept(film_)) << "a link";
  fs::remove(file);
  ASSERT_EQ(mkfifo(file.c_str(), 0600), 0);
  EXPECT_FALSE(IsKept(film_)) << "a pipe, which is not waited for";
}

TEST_F(FilmKept, IsNotBelievedFromAnotherUser) {
  if (geteuid() != 0) {
    GTEST_SKIP() << "needs root";
  }
  Keep(film_, State(film_), MadeUp());
  ASSERT_EQ(chown(Path(FileFor(film_)).c_str(), 65534, 65534), 0);
  EXPECT_FALSE(IsKept(film_));
}

TEST_F(FilmKept, IsNotPutIntoAFolderOfOthers) {
  for (const char* folder : {"/var/packages/Mirevo/cache", kFolder}) {
    fs::remove_all(Path("/var/packages/Mirevo/cache"));
    MakeDirectory(kFolder);
    ASSERT_EQ(chmod(Path(folder).c_str(), 0775), 0);
    Keep(film_, State(film_), MadeUp());
    EXPECT_FALSE(IsKept(film_)) << folder;
    EXPECT_TRUE(fs::is_empty(Path(kFolder)));
  }
  fs::remove_all(Path(kFolder));
  ASSERT_EQ(chmod(Path("/var/packages/Mirevo/cache").c_str(), 0755), 0);
  MakeDirectory("/elsewhere");
  fs::create_directory_symlink(Path("/elsewhere"), Path(kFolder));
  Keep(film_, State(film_), MadeUp());
  EXPECT_TRUE(fs::is_empty(Path("/elsewhere")));
}

TEST_F(FilmKept, IsNotReadWhenItIsTooLong) {
  Json::Value document = MadeUp();
  document["track_info"]["title"] = std::string(2 << 20, 'x');
  Keep(film_, State(film_), document);
  EXPECT_FALSE(IsKept(film_));
  const std::string body(2 << 20, ' ');
  Write(FileFor(film_), LibMirevo::GetMD5(body) + body);
  EXPECT_FALSE(IsKept(film_));
}

}  // namespace
