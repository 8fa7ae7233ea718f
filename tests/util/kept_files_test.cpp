#include "util/kept_files.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <sys/stat.h>

#include <filesystem>
#include <set>
#include <string>

#include "platform/unique_fd.h"
#include "support/sysroot.h"

namespace {

namespace fs = std::filesystem;

class KeptFiles : public test::Sysroot {
 protected:
  void SetUp() override {
    Sysroot::SetUp();
    MakeDirectory("/kept");
    folder_ = Path("/kept");
  }

  // A file of some ten blocks that was changed at `second`.
  void WriteOld(const std::string& name, time_t second, long nanosecond = 0) const {
    Write("/kept/" + name, std::string(40000, 'x'));
    const timespec times[2] = {{second, nanosecond}, {second, nanosecond}};
    utimensat(AT_FDCWD, (folder_ + "/" + name).c_str(), times, 0);
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

TEST_F(KeptFiles, LoseTheOldestWhenTheyAreTooLarge) {
  WriteOld("old.jpg", 100);
  WriteOld("new.jpg", 300);
  WriteOld("middle.jpg", 200);
  orvo::TrimFolder(folder_, 100000);
  EXPECT_EQ(Names(), (std::set<std::string>{"middle.jpg", "new.jpg"}));
}

TEST_F(KeptFiles, KeepTheirLocksAndFilesWithinTheLimit) {
  WriteOld(".jobs", 1);
  WriteOld("a.jpg", 2);
  orvo::TrimFolder(folder_, 100000);
  EXPECT_EQ(Names(), (std::set<std::string>{".jobs", "a.jpg"}));
  orvo::TrimFolder(folder_, 0);
  EXPECT_EQ(Names(), (std::set<std::string>{".jobs"}));
}

TEST_F(KeptFiles, KnowTheOlderOfTwoFilesInTheSameSecond) {
  WriteOld("a", 100, 2);
  WriteOld("b", 100, 1);
  orvo::TrimFolder(folder_, 50000);
  EXPECT_EQ(Names(), std::set<std::string>{"a"});
}

TEST_F(KeptFiles, TakeUpSpaceEvenIfEmptyAndLinksTakeNone) {
  Write("/kept/empty", "");
  fs::create_symlink(folder_ + "/empty", folder_ + "/link");
  orvo::TrimFolder(folder_, 0);
  EXPECT_EQ(Names(), std::set<std::string>{"link"});
}

TEST_F(KeptFiles, LoseTheOldestForTheNewest) {
  WriteOld("old", 100);
  WriteOld("new", 200);
  EXPECT_TRUE(orvo::KeepFile(folder_ + "/newest", "content", 0600, 50000));
  EXPECT_EQ(Names(), (std::set<std::string>{".trim", "newest"})) << "a tenth is left free";
  EXPECT_EQ(Read("/kept/newest"), "content");
  struct stat status {};
  ASSERT_EQ(stat((folder_ + "/newest").c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 07777, 0600U);
  ASSERT_EQ(stat((folder_ + "/.trim").c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 07777, 0600U);
}

TEST_F(KeptFiles, AreRemovedByOneProcessAtATime) {
  WriteOld("old", 100);
  Write("/kept/.trim", "");
  const orvo::UniqueFd other(open((folder_ + "/.trim").c_str(), O_RDONLY | O_CLOEXEC));
  ASSERT_EQ(flock(other.Get(), LOCK_EX), 0);
  EXPECT_TRUE(orvo::KeepFile(folder_ + "/new", "content", 0600, 1000));
  EXPECT_EQ(Names(), (std::set<std::string>{".trim", "new", "old"}));
}

TEST_F(KeptFiles, CannotBeWrittenWhereThereIsNoFolder) {
  EXPECT_FALSE(orvo::KeepFile(Path("/none/file"), "content", 0600, 1000));
  EXPECT_FALSE(Exists("/none"));
}

}  // namespace
