#include "util/film_cache.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
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

  static std::string PathFor(const std::string& film, const std::string& what) {
    return orvo::CachePath(orvo::MediaFile::Open(film), what, ".json");
  }

  std::string folder_;
};

TEST_F(FilmCache, MakesItsFolderForTheFirstFile) {
  EXPECT_TRUE(orvo::KeepInCache(folder_ + "/new/card.json", "{}", 1 << 20));
  std::ifstream kept(folder_ + "/new/card.json");
  EXPECT_EQ(std::string(std::istreambuf_iterator<char>(kept), {}), "{}");
}

TEST_F(FilmCache, GivesAChangedFilmAnotherName) {
  const std::string film = Write("film.mkv", 10, 100);
  const std::string first = PathFor(film, "card");
  EXPECT_EQ(first, PathFor(film, "card"));
  EXPECT_NE(first, PathFor(film, "poster"));
  Write("film.mkv", 11, 100);
  const std::string larger = PathFor(film, "card");
  EXPECT_NE(first, larger);
  Write("film.mkv", 11, 101);
  const std::string later = PathFor(film, "card");
  EXPECT_NE(larger, later);
  Write("film.mkv", 11, 101, 1);
  EXPECT_NE(later, PathFor(film, "card"));
}

}  // namespace
