#include "webapi/library/film_cache.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <set>
#include <string>

namespace {

namespace fs = std::filesystem;

class FilmCache : public ::testing::Test {
 protected:
  FilmCache() {
    std::string name = (fs::temp_directory_path() / "film-cache-XXXXXX").string();
    folder_ = mkdtemp(name.data());
  }
  ~FilmCache() override { fs::remove_all(folder_); }

  // A file that was changed at `second` and some nanoseconds.
  std::string Write(const std::string& name, size_t size, time_t second,
                    int64_t nanoseconds = 0) const {
    const std::string path = folder_ + "/" + name;
    std::ofstream(path) << std::string(size, 'x');
    const timespec times[2] = {{second, nanoseconds}, {second, nanoseconds}};
    utimensat(AT_FDCWD, path.c_str(), times, 0);
    return path;
  }

  std::set<std::string> Names() const {
    std::set<std::string> names;
    for (const auto& entry : fs::directory_iterator(folder_)) {
      names.insert(entry.path().filename().string());
    }
    return names;
  }

  std::string folder_;
};

TEST_F(FilmCache, LosesItsOldestFilesWhenItIsTooLarge) {
  Write("old.jpg", 40000, 100);
  Write("new.jpg", 40000, 300);
  Write("middle.jpg", 40000, 200);
  webapi::TrimFolder(folder_, 100000);
  EXPECT_EQ(Names(), (std::set<std::string>{"middle.jpg", "new.jpg"}));
}

TEST_F(FilmCache, KnowsTheOlderOfTwoOfOneSecond) {
  Write("a.jpg", 40000, 100, 2);
  Write("b.jpg", 40000, 100, 1);
  webapi::TrimFolder(folder_, 50000);
  EXPECT_EQ(Names(), std::set<std::string>{"a.jpg"});
}

TEST_F(FilmCache, CountsEmptyFilesAndFollowsNoLinks) {
  Write("empty.jpg", 0, 100);
  fs::create_symlink(folder_ + "/empty.jpg", folder_ + "/link");
  webapi::TrimFolder(folder_, 0);
  EXPECT_EQ(Names(), std::set<std::string>{"link"});
}

TEST_F(FilmCache, MakesItsFolderForWhatIsKept) {
  EXPECT_TRUE(webapi::KeepInCache(folder_ + "/new/card.json", "{}"));
  std::ifstream kept(folder_ + "/new/card.json");
  EXPECT_EQ(std::string(std::istreambuf_iterator<char>(kept), {}), "{}");
}

TEST_F(FilmCache, KeepsItsLocksAndWhatHasRoom) {
  Write(".jobs", 40000, 1);
  Write("a.jpg", 40000, 2);
  webapi::TrimFolder(folder_, 100000);
  EXPECT_EQ(Names(), (std::set<std::string>{".jobs", "a.jpg"}));
  webapi::TrimFolder(folder_, 0);
  EXPECT_EQ(Names(), (std::set<std::string>{".jobs"}));
}

TEST_F(FilmCache, GivesAChangedFilmAnotherPlace) {
  const std::string film = Write("film.mkv", 10, 100);
  const std::string first = webapi::CachePath(film, "card", ".json");
  EXPECT_EQ(first, webapi::CachePath(film, "card", ".json"));
  EXPECT_NE(first, webapi::CachePath(film, "poster", ".json"));
  Write("film.mkv", 11, 100);
  const std::string larger = webapi::CachePath(film, "card", ".json");
  EXPECT_NE(first, larger);
  Write("film.mkv", 11, 101);
  const std::string later = webapi::CachePath(film, "card", ".json");
  EXPECT_NE(larger, later);
  Write("film.mkv", 11, 101, 1);
  EXPECT_NE(later, webapi::CachePath(film, "card", ".json"));
  EXPECT_EQ(webapi::CachePath(folder_ + "/none.mkv", "card", ".json"), "");
}

}  // namespace
