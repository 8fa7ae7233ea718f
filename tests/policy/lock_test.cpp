#include "policy/lock.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <csignal>

#include "support/log_capture.h"
#include "support/processes.h"
#include "support/sysroot.h"

namespace {

using LibMirevo::Lock;
using List = std::vector<std::string>;

class FileLock : public test::Sysroot {
 protected:
  void SetUp() override {
    Sysroot::SetUp();
    path_ = Path("/locks/deep/file");
  }
  std::string path_;
};

TEST_F(FileLock, MakesItsFileAndDirectory) {
  const mode_t old = umask(0);
  const Lock lock(path_, true);
  umask(old);
  EXPECT_TRUE(lock.IsLockSucess());
  struct stat status {};
  ASSERT_EQ(stat(path_.c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 07777, 0777U);
  EXPECT_EQ(status.st_size, 0);
  ASSERT_EQ(stat(Path("/locks/deep").c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 07777, 0777U);
  if (geteuid() == 0) {
    EXPECT_EQ(status.st_uid, geteuid());
    EXPECT_EQ(status.st_gid, getegid());
  }
}

TEST_F(FileLock, IsRefusedAtOnceWhileAnotherHoldsItUnlessItMayWait) {
  const Lock held(path_, true);
  const Lock refused(path_, false);
  EXPECT_TRUE(held.IsLockSucess());
  EXPECT_FALSE(refused.IsLockSucess());
}

TEST_F(FileLock, IsFreeAfterUnlockingAndAfterDestruction) {
  {
    Lock first(path_, false);
    first.UnlockFile();
    EXPECT_FALSE(first.IsLockSucess());
    first.UnlockFile();
    EXPECT_TRUE(Lock(path_, false).IsLockSucess());
  }
  EXPECT_TRUE(Lock(path_, false).IsLockSucess());
}

TEST_F(FileLock, ThatAnotherHolderTookIsNotHeld) {
  Lock first(path_, false);
  first.UnlockFile();
  Lock second(path_, false);
  EXPECT_FALSE(first.LockFile());
  EXPECT_FALSE(first.IsLockSucess());
  second.UnlockFile();
  EXPECT_TRUE(first.LockFile());
  EXPECT_TRUE(first.IsLockSucess());
}

TEST_F(FileLock, IsWaitedForUntilItsHolderDies) {
  test::Child holder([this] {
    const Lock lock(path_, true);
    test::StopHere();
  });
  ASSERT_TRUE(holder.WaitUntilStopped());
  EXPECT_FALSE(Lock(path_, false).IsLockSucess());
  test::Pipe got;
  test::Child waiter([&] {
    EXPECT_TRUE(Lock(path_, true).IsLockSucess());
    got.Write("x");
  });
  holder.Kill(SIGKILL);
  EXPECT_EQ(got.ReadToEnd(), "x");
  EXPECT_EQ(waiter.Wait(), 0);
}

TEST_F(FileLock, IsNotInheritedByPrograms) {
  const Lock lock(path_, true);
  // A program that outlives the lock must not keep it.
  test::Pipe ready;
  test::Child program([&] {
    dup2(ready.WriteEnd(), STDOUT_FILENO);
    execl("/bin/sh", "sh", "-c", "echo x; exec 1>&-; kill -STOP $$", nullptr);
  });
  EXPECT_EQ(ready.ReadToEnd(), "x\n");
  const_cast<Lock&>(lock).UnlockFile();
  EXPECT_TRUE(Lock(path_, false).IsLockSucess());
}

TEST_F(FileLock, NeedsADirectory) {
  EXPECT_FALSE(Lock("file", true).IsLockSucess());
  EXPECT_EQ(test::TakeLogTexts(), List{"lock:N Find dir path failed file"});
  Write("/plain", "");
  const std::string below = Path("/plain/dir");
  EXPECT_FALSE(Lock(below + "/file", true).IsLockSucess());
  EXPECT_EQ(test::TakeLogTexts(), List{"lock:N Fail to create dir [" + below + "]"});
}

TEST_F(FileLock, IsNotTakenOnADirectoryOrThroughALink) {
  EXPECT_FALSE(Lock(Path("/volume1"), true).IsLockSucess());
  ASSERT_EQ(symlink("/etc/passwd", Path("/planted").c_str()), 0);
  EXPECT_FALSE(Lock(Path("/planted"), true).IsLockSucess());
}

}  // namespace
