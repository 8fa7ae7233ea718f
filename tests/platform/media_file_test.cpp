#include "platform/media_file.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <filesystem>
#include <fstream>
#include <string>
#include <thread>

#include "platform/beneath.h"
#include "support/sysroot.h"

namespace {

namespace fs = std::filesystem;
using orvo::MediaFile;
using orvo::UniqueFd;

std::string ContentOf(const MediaFile& file) {
  std::string content(64, '\0');
  const ssize_t count = pread(file.Get(), content.data(), content.size(), 0);
  content.resize(count > 0 ? static_cast<size_t>(count) : 0);
  return content;
}

class MediaFileTest : public test::Sysroot {
 protected:
  void SetUp() override {
    Sysroot::SetUp();
    root_ = Root() + "/films";
    fs::create_directories(root_ + "/folder");
    WriteFile(root_ + "/folder/film.mkv", "film");
    WriteFile(Root() + "/secret", "secret");
  }

  static void WriteFile(const std::string& path, const std::string& content) {
    std::ofstream(path) << content;
  }

  MediaFile Open(const std::string& name) const {
    return MediaFile::OpenBeneath(root_, root_ + "/" + name);
  }

  // Opens it in both ways that a kernel may need.
  void ExpectNone(const std::string& name, int error) const {
    errno = 0;
    EXPECT_FALSE(Open(name).IsOpen()) << name;
    EXPECT_EQ(errno, error) << name;
    const UniqueFd root(open(root_.c_str(), O_PATH | O_CLOEXEC));
    errno = 0;
    EXPECT_FALSE(OpenFound(orvo::WalkBeneath(root, name)).IsOpen()) << name;
    EXPECT_EQ(errno, error) << name;
  }

  std::string root_;
};

TEST_F(MediaFileTest, OpensAFileBelowItsRoot) {
  const MediaFile film = Open("folder/film.mkv");
  EXPECT_EQ(ContentOf(film), "film");
  EXPECT_EQ(film.Path(), root_ + "/folder/film.mkv");
  EXPECT_EQ(film.Status().st_size, 4);
  const UniqueFd root(open(root_.c_str(), O_PATH | O_CLOEXEC));
  EXPECT_TRUE(orvo::WalkBeneath(root, "folder/film.mkv").IsOpen());
}

TEST_F(MediaFileTest, OpensARootThatIsAFile) {
  const std::string film = root_ + "/folder/film.mkv";
  EXPECT_EQ(ContentOf(MediaFile::OpenBeneath(film, film)), "film");
  EXPECT_EQ(ContentOf(MediaFile::OpenBeneath("/", film)), "film");
}

TEST_F(MediaFileTest, FollowsNoLinkBelowTheRoot) {
  fs::create_symlink(Root() + "/secret", root_ + "/outside.mkv");
  fs::create_symlink("folder/film.mkv", root_ + "/inside.mkv");
  fs::create_symlink(Root(), root_ + "/up");
  fs::create_symlink("folder", root_ + "/same");
  ExpectNone("outside.mkv", ELOOP);
  ExpectNone("inside.mkv", ELOOP);
  ExpectNone("up/secret", ELOOP);
  ExpectNone("same/film.mkv", ELOOP);
}

TEST_F(MediaFileTest, DoesNotLeaveTheRoot) {
  ExpectNone("../secret", EINVAL);
  ExpectNone("folder/../../secret", EINVAL);
  ExpectNone("folder//film.mkv", EINVAL);
  ExpectNone("folder/./film.mkv", EINVAL);
  EXPECT_FALSE(MediaFile::OpenBeneath(root_, Root() + "/secret").IsOpen());
  EXPECT_EQ(errno, EXDEV);
  EXPECT_FALSE(MediaFile::OpenBeneath(root_, root_ + "more").IsOpen());
}

TEST_F(MediaFileTest, OpensNothingButRegularFiles) {
  ASSERT_EQ(mkfifo((root_ + "/pipe.mkv").c_str(), 0600), 0);
  const UniqueFd socket(::socket(AF_UNIX, SOCK_STREAM, 0));
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  const UniqueFd root(open(root_.c_str(), O_PATH | O_CLOEXEC));
  // The name of a socket has little room.
  snprintf(address.sun_path, sizeof address.sun_path, "/proc/self/fd/%d/socket.mkv", root.Get());
  ASSERT_EQ(bind(socket.Get(), reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
  ExpectNone("pipe.mkv", EINVAL);
  ExpectNone("socket.mkv", EINVAL);
  ExpectNone("folder", EINVAL);
  ExpectNone("missing.mkv", ENOENT);
  ExpectNone("folder/film.mkv/more", ENOTDIR);
  EXPECT_FALSE(MediaFile::Open("/dev/zero").IsOpen());
}

TEST_F(MediaFileTest, StaysWithItsFileWhenTheNameLeadsElsewhere) {
  const MediaFile film = Open("folder/film.mkv");
  fs::rename(root_ + "/folder/film.mkv", root_ + "/folder/moved.mkv");
  fs::create_symlink(Root() + "/secret", root_ + "/folder/film.mkv");
  EXPECT_EQ(ContentOf(film), "film");
  EXPECT_EQ(ContentOf(MediaFile::Open(film.Address())), "film");
  EXPECT_EQ(film.Identity(), Open("folder/moved.mkv").Identity());
  EXPECT_NE(film.Identity(), MediaFile::Open(Root() + "/secret").Identity());
}

// One thread swaps a film for a link as fast as it can.
TEST_F(MediaFileTest, NeverOpensWhatALinkLeadsToDuringASwap) {
  const std::string name = root_ + "/folder/film.mkv";
  const std::string film = root_ + "/kept";
  const std::string link = root_ + "/link";
  WriteFile(film, "film");
  fs::create_symlink(Root() + "/secret", link);
  std::atomic<bool> isOver = false;
  std::thread attacker([&] {
    while (!isOver) {
      for (const std::string& next : {link, film}) {
        unlink((name + ".new").c_str());
        if (linkat(AT_FDCWD, next.c_str(), AT_FDCWD, (name + ".new").c_str(), 0) == 0) {
          rename((name + ".new").c_str(), name.c_str());
        }
      }
    }
  });
  int films = 0;
  int links = 0;
  for (int i = 0; i < 20000 || films == 0 || links == 0; ++i) {
    const MediaFile file = Open("folder/film.mkv");
    const std::string content = file.IsOpen() ? ContentOf(file) : "";
    ASSERT_NE(content, "secret");
    films += content == "film" ? 1 : 0;
    links += content.empty() ? 1 : 0;
  }
  isOver = true;
  attacker.join();
  EXPECT_GT(films, 0);
  EXPECT_GT(links, 0);
}

}  // namespace
