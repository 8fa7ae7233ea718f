// Which stored result counts as a film's.
#include "preprocess/stored_result.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>

#include "preprocess/preprocess_helper.h"
#include "support/sysroot.h"

namespace {

namespace fs = std::filesystem;
using namespace LibOrvoQMX::preprocess;

class StoredResult : public test::Sysroot {
 protected:
  void SetUp() override {
    test::Sysroot::SetUp();
    film_ = Path("/volume1/film.mkv");
    Write("/volume1/film.mkv", "pictures");
  }
  // A result with this end, at `path`.
  static void Store(const std::string& path, double end) {
    PreprocessResultWrapper result;
    result.PushPtsTime(0);
    result.set_end_time(end);
    fs::create_directories(fs::path(path).parent_path());
    ASSERT_TRUE(result.WriteToFile(path));
  }
  void StoreBeside(double end) const { Store(PreprocessUtil::GetPreprocessResultPath(film_), end); }
  void StoreOwn(double end) const {
    Store(OwnResultPath(film_), end);
    ASSERT_TRUE(WriteFilmRecord({FilmState(film_), "", film_}));
  }
  // The end of the result that counts; -1 without one.
  double End() const {
    PreprocessResultWrapper result;
    return ReadCurrentResult(film_, result) ? result.end_time() : -1;
  }
  static void SetTime(const std::string& path, time_t seconds) {
    const timespec times[] = {{seconds, 0}, {seconds, 0}};
    ASSERT_EQ(utimensat(AT_FDCWD, path.c_str(), times, 0), 0);
  }

  std::string film_;
};

TEST_F(StoredResult, BesideAFilmIsValidUntilTheFilmIsReplaced) {
  EXPECT_EQ(End(), -1);
  StoreBeside(30);
  EXPECT_EQ(End(), 30);
  EXPECT_TRUE(PreprocessHelper(film_, 8).IsAvailable());
  // The new film is older than the result, and was moved here after it.
  Write("/volume1/other.mkv", "other pictures");
  SetTime(Path("/volume1/other.mkv"), 1000000000);
  SetTime(PreprocessUtil::GetPreprocessResultPath(film_), time(nullptr) - 60);
  fs::rename(Path("/volume1/other.mkv"), film_);
  EXPECT_EQ(End(), -1);
  EXPECT_FALSE(PreprocessHelper(film_, 8).IsAvailable());
  EXPECT_FALSE(HasCurrentResult(film_));
}

TEST_F(StoredResult, BesideAFilmIsValidIfTheFilmCannotBeRead) {
  fs::remove(film_);
  StoreBeside(30);
  EXPECT_EQ(End(), 30);
}

TEST_F(StoredResult, OfTheServiceIsValidForTheAnalyzedState) {
  StoreOwn(20);
  EXPECT_EQ(End(), 20);
  EXPECT_TRUE(PreprocessHelper(film_, 8).IsAvailable());
  Write("/volume1/film.mkv", "longer pictures");
  EXPECT_EQ(End(), -1);
}

TEST_F(StoredResult, BesideAFilmComesFirstUnlessItIsOlder) {
  StoreOwn(20);
  StoreBeside(30);
  EXPECT_EQ(End(), 30);
  SetTime(PreprocessUtil::GetPreprocessResultPath(film_), 1000000000);
  EXPECT_EQ(End(), 20);
}

TEST_F(StoredResult, OfTheServiceIsNotValidForAnotherPathOrWithoutARecord) {
  StoreOwn(20);
  ASSERT_TRUE(WriteFilmRecord({FilmState(film_), "", film_}));
  fs::copy(OwnFolder(film_), OwnFolder(Path("/volume1/copy.mkv")));
  fs::create_hard_link(film_, Path("/volume1/copy.mkv"));
  PreprocessResultWrapper result;
  EXPECT_FALSE(ReadCurrentResult(Path("/volume1/copy.mkv"), result));
  fs::remove(OwnFolder(film_) + "/film");
  EXPECT_EQ(End(), -1);
}

TEST_F(StoredResult, AFailureIsRememberedUntilTheFilmChanges) {
  EXPECT_EQ(FailureOf(film_), "");
  ASSERT_TRUE(WriteFilmRecord({FilmState(film_), "no video", film_}));
  EXPECT_EQ(FailureOf(film_), "no video");
  EXPECT_EQ(End(), -1);
  Write("/volume1/film.mkv", "longer pictures");
  EXPECT_EQ(FailureOf(film_), "");
}

TEST_F(StoredResult, ARecordHoldsAPathWithNewlines) {
  const std::string film = Path("/volume1/two\nlines.mkv");
  Write("/volume1/two\nlines.mkv", "x");
  ASSERT_TRUE(WriteFilmRecord({FilmState(film), "no video", film}));
  EXPECT_EQ(FailureOf(film), "no video");
  EXPECT_EQ(ReadFilmRecord(OwnFolder(film)).film, film);
}

}  // namespace
