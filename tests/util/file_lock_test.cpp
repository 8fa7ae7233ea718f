#include "util/file_lock.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>

#include "support/processes.h"
#include "support/sysroot.h"

namespace {

using orvo::FileLock;

class FileLocks : public test::Sysroot {};

TEST_F(FileLocks, AreHeldByOneAtATime) {
  const std::string path = Path("/lock");
  {
    const auto lock = FileLock::Wait(path);
    EXPECT_TRUE(lock.IsHeld());
    EXPECT_FALSE(FileLock::Try(path).IsHeld());
  }
  EXPECT_TRUE(FileLock::Try(path).IsHeld());
}

TEST_F(FileLocks, AreWaitedForForALimitedTime) {
  const std::string path = Path("/lock");
  const auto held = FileLock::Wait(path);
  EXPECT_FALSE(FileLock::Wait(path, 50).IsHeld());
  const auto name = FileLock::WaitFor("one", Path("/names"));
  EXPECT_FALSE(FileLock::WaitFor("one", Path("/names"), 50).IsHeld());
  EXPECT_TRUE(FileLock::WaitFor("two", Path("/names"), 50).IsHeld());
}

TEST_F(FileLocks, AreReleasedWithTheirProcess) {
  const std::string path = Path("/lock");
  test::InChild([&] {
    const auto lock = FileLock::Wait(path);
    EXPECT_TRUE(lock.IsHeld());
  });
  EXPECT_TRUE(FileLock::Try(path).IsHeld());
}

TEST_F(FileLocks, OfDifferentNamesShareAFile) {
  const std::string path = Path("/lock");
  const auto one = FileLock::WaitFor("one", path);
  const auto two = FileLock::WaitFor("two", path);
  EXPECT_TRUE(one.IsHeld());
  EXPECT_TRUE(two.IsHeld());
}

TEST_F(FileLocks, CannotBeOpenedByOthers) {
  umask(0);
  Write("/old", "");
  ASSERT_EQ(chmod(Path("/old").c_str(), 0777), 0);
  for (const char* name : {"/new", "/old"}) {
    ASSERT_TRUE(FileLock::Wait(Path(name)).IsHeld());
    struct stat status {};
    ASSERT_EQ(stat(Path(name).c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & ACCESSPERMS, 0600U) << name;
  }
  umask(022);
}

// Network storage wants this for an exclusive lock.
TEST_F(FileLocks, OpenTheirFileForWriting) {
  const std::string path = Path("/lock");
  const auto lock = FileLock::Wait(path);
  int found = 0;
  for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
    std::error_code failure;
    if (std::filesystem::read_symlink(entry, failure) == path) {
      ++found;
      EXPECT_EQ(fcntl(std::stoi(entry.path().filename()), F_GETFL) & O_ACCMODE, O_RDWR);
    }
  }
  EXPECT_EQ(found, 1);
}

TEST_F(FileLocks, FollowNoLinkAndMakeNoFolder) {
  ASSERT_EQ(symlink(Path("/target").c_str(), Path("/link").c_str()), 0);
  EXPECT_FALSE(FileLock::Wait(Path("/link")).IsHeld());
  EXPECT_FALSE(Exists("/target"));
  EXPECT_FALSE(FileLock::Wait(Path("/none/lock")).IsHeld());
}

}  // namespace
