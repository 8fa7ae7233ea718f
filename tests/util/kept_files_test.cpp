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

// The name of a result.
std::string Name(char digit) {
  std::string name(32, digit);
  return name += ".jpg";
}

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
  WriteOld(Name('a'), 100);
  WriteOld(Name('c'), 300);
  WriteOld(Name('b'), 200);
  orvo::TrimFolder(folder_, 100000);
  EXPECT_EQ(Names(), (std::set<std::string>{Name('b'), Name('c')}));
}

TEST_F(KeptFiles, KeepTheirLocksAndFilesWithinTheLimit) {
  WriteOld(".jobs", 1);
  WriteOld(Name('a'), 2);
  orvo::TrimFolder(folder_, 100000);
  EXPECT_EQ(Names(), (std::set<std::string>{".jobs", Name('a')}));
  orvo::TrimFolder(folder_, 0);
  EXPECT_EQ(Names(), (std::set<std::string>{".jobs"}));
}

TEST_F(KeptFiles, KnowTheOlderOfTwoFilesInTheSameSecond) {
  WriteOld(Name('a'), 100, 2);
  WriteOld(Name('b'), 100, 1);
  orvo::TrimFolder(folder_, 50000);
  EXPECT_EQ(Names(), std::set<std::string>{Name('a')});
}

TEST_F(KeptFiles, TakeUpSpaceEvenIfEmptyAndLinksTakeNone) {
  Write("/kept/" + Name('e'), "");
  fs::create_symlink(folder_ + "/" + Name('e'), folder_ + "/" + Name('f'));
  orvo::TrimFolder(folder_, 0);
  EXPECT_EQ(Names(), std::set<std::string>{Name('f')});
}

TEST_F(KeptFiles, LoseTheOldestForTheNewest) {
  WriteOld(Name('a'), 100);
  WriteOld(Name('b'), 200);
  EXPECT_TRUE(orvo::KeepFile(folder_ + "/" + Name('c'), "content", 0600, 50000));
  EXPECT_EQ(Names(), (std::set<std::string>{".trim", Name('c')})) << "a tenth is left free";
  EXPECT_EQ(Read("/kept/" + Name('c')), "content");
  struct stat status {};
  ASSERT_EQ(stat((folder_ + "/" + Name('c')).c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 07777, 0600U);
  ASSERT_EQ(stat((folder_ + "/.trim").c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 07777, 0600U);
}

TEST_F(KeptFiles, AreRemovedByOneProcessAtATime) {
  WriteOld(Name('a'), 100);
  Write("/kept/.trim", "");
  const orvo::UniqueFd other(open((folder_ + "/.trim").c_str(), O_RDONLY | O_CLOEXEC));
  ASSERT_EQ(flock(other.Get(), LOCK_EX), 0);
  EXPECT_TRUE(orvo::KeepFile(folder_ + "/" + Name('c'), "content", 0600, 1000));
  EXPECT_EQ(Names(), (std::set<std::string>{".trim", Name('a'), Name('c')}));
}

TEST_F(KeptFiles, LeaveFilesOfOthersInTheirFolderAlone) {
  const std::string unfinished = Name('a') + ".Xa9_bC";
  for (const std::string& name :
       {std::string("machine_speed.json"), std::string("gstreamer.bin"),
        std::string(33, 'b') += ".jpg", std::string(32, 'a'), unfinished}) {
    WriteOld(name, 1);
  }
  orvo::TrimFolder(folder_, 0);
  EXPECT_FALSE(Names().contains(unfinished)) << "of a writer that was killed";
  EXPECT_EQ(Names().size(), 4U);
}

TEST_F(KeptFiles, CannotBeWrittenWhereThereIsNoFolder) {
  EXPECT_FALSE(orvo::KeepFile(Path("/none/file"), "content", 0600, 1000));
  EXPECT_FALSE(Exists("/none"));
}

}  // namespace
