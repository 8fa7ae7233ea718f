#include "util/film_previews.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>
#include <fstream>

#include "platform/unique_fd.h"
#include "support/sysroot.h"

namespace {

namespace fs = std::filesystem;
using orvo::PreviewLayout;

const std::string kJpeg("\xff\xd8the rest", 10);
constexpr PreviewLayout kLayout{160, 90, 20, 299, 24.125};

class FilmPreviews : public test::Sysroot {
 protected:
  orvo::MediaFile Film(const std::string& content = "film") const {
    std::ofstream(Path("/film.mkv")) << content;
    return orvo::MediaFile::Open(Path("/film.mkv"));
  }
  static void SetAge(const std::string& path, time_t seconds) {
    const timespec then{time(nullptr) - seconds, 0};
    const timespec times[] = {then, then};
    ASSERT_EQ(utimensat(AT_FDCWD, path.c_str(), times, 0), 0);
  }
};

TEST_F(FilmPreviews, AreOnePictureWithItsLayout) {
  const auto film = Film();
  EXPECT_FALSE(orvo::HavePreviews(film));
  EXPECT_FALSE(orvo::UsePreviews(film));
  ASSERT_TRUE(orvo::KeepPreviews(film, kJpeg, kLayout));
  EXPECT_TRUE(orvo::HavePreviews(film));
  const auto layout = orvo::UsePreviews(film);
  ASSERT_TRUE(layout);
  EXPECT_EQ(layout->width, 160);
  EXPECT_EQ(layout->height, 90);
  EXPECT_EQ(layout->columns, 20);
  EXPECT_EQ(layout->count, 299);
  EXPECT_EQ(layout->seconds, 24.125);
  std::ifstream file(orvo::PreviewsPath(film));
  const std::string content(std::istreambuf_iterator<char>(file), {});
  EXPECT_TRUE(content.starts_with(std::string("\xff\xd8\xff\xfe", 4))) << "a JPEG with a comment";
  EXPECT_TRUE(content.ends_with("the rest"));
  EXPECT_EQ(content.size(), kJpeg.size() + 2 + static_cast<size_t>(content[5]))
      << "the comment has its length";
}

TEST_F(FilmPreviews, BelongToOneStateOfTheFilm) {
  ASSERT_TRUE(orvo::KeepPreviews(Film(), kJpeg, kLayout));
  EXPECT_FALSE(orvo::HavePreviews(Film("another film")));
}

TEST_F(FilmPreviews, AreNotMissedByAFilmThatGivesNone) {
  const auto film = Film();
  ASSERT_TRUE(orvo::KeepPreviews(film, "", {}));
  EXPECT_TRUE(orvo::HavePreviews(film));
  EXPECT_FALSE(orvo::UsePreviews(film));
}

TEST_F(FilmPreviews, WithAnImpossibleLayoutAreNone) {
  const auto film = Film();
  for (const PreviewLayout& layout : {PreviewLayout{0, 90, 20, 10, 2},
                                      {160, -1, 20, 10, 2},
                                      {160, 90, 20, 1 << 30, 2},
                                      {160, 90, 20, 10, 0}}) {
    ASSERT_TRUE(orvo::KeepPreviews(film, kJpeg, layout));
    EXPECT_FALSE(orvo::UsePreviews(film));
  }
}

TEST_F(FilmPreviews, OfADamagedFileAreNone) {
  const auto film = Film();
  ASSERT_TRUE(orvo::KeepPreviews(film, kJpeg, kLayout));
  for (const std::string& content :
       {kJpeg, std::string("\xff\xd8\xff\xfe\0\x10previews 1x", 17), std::string(1000, 'x')}) {
    std::ofstream(orvo::PreviewsPath(film)) << content;
    EXPECT_FALSE(orvo::UsePreviews(film));
  }
}

TEST_F(FilmPreviews, HaveRoomWhereOthersWereNotUsedForLong) {
  const auto film = Film();
  ASSERT_TRUE(orvo::KeepPreviews(film, kJpeg, kLayout));
  EXPECT_TRUE(orvo::IsRoomForPreviews());
  const std::string other =
      fs::path(orvo::PreviewsPath(film)).parent_path() / (std::string(32, '0') + ".jpg");
  const orvo::UniqueFd file(open(other.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600));
  if (posix_fallocate(file.Get(), 0, off_t{1} << 30) != 0) {
    GTEST_SKIP() << "no room for a gigabyte here";
  }
  EXPECT_FALSE(orvo::IsRoomForPreviews());
  SetAge(other, 91 * 86400);
  EXPECT_TRUE(orvo::IsRoomForPreviews());
}

TEST_F(FilmPreviews, ThatAreUsedAgainAreNewAgain) {
  const auto film = Film();
  ASSERT_TRUE(orvo::KeepPreviews(film, kJpeg, kLayout));
  const std::string path = orvo::PreviewsPath(film);
  SetAge(path, 8 * 86400);
  ASSERT_TRUE(orvo::UsePreviews(film));
  struct stat status {};
  ASSERT_EQ(stat(path.c_str(), &status), 0);
  EXPECT_LT(time(nullptr) - status.st_mtim.tv_sec, 86400);
}

}  // namespace
