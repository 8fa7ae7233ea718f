#include "accounts/attempts.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <vector>

#include "accounts/secrets.h"
#include "support/sysroot.h"

namespace {

using accounts::Attempts;

constexpr accounts::Limit kLimit{3, 10};
constexpr int64_t kNow = 1700000000;
constexpr char kFolder[] = "/run/mirevo/attempts";

class Tries : public test::Sysroot {
 protected:
  static int64_t Take(const std::string& key, int64_t now) {
    return Attempts(key, kLimit, now).Take();
  }
  static void Empty(const std::string& key, int64_t now) {
    for (int i = 0; i < kLimit.tries; ++i) {
      ASSERT_EQ(Take(key, now), 0);
    }
  }
  std::string File() const {
    const std::filesystem::directory_iterator first(Path(kFolder));
    return std::string(kFolder) + "/" + first->path().filename().string();
  }
};

TEST_F(Tries, AreLimitedAndReportTheWaitForTheNextOne) {
  Empty("anna", kNow);
  EXPECT_EQ(Take("anna", kNow), 10);
  EXPECT_EQ(Take("anna", kNow + 4), 6);
  EXPECT_EQ(Take("anna", kNow + 10), 0);
  EXPECT_EQ(Take("anna", kNow + 10), 10);
}

TEST_F(Tries, RefusedOnesDoNotCount) {
  Empty("anna", kNow);
  for (int i = 0; i < 100; ++i) {
    Take("anna", kNow);
  }
  EXPECT_EQ(Take("anna", kNow + 10), 0);
}

TEST_F(Tries, FillUpAgainToTheLimit) {
  Empty("anna", kNow);
  Empty("anna", kNow + 1000);
  EXPECT_GT(Take("anna", kNow + 1000), 0);
}

TEST_F(Tries, AreCountedForEachKey) {
  Empty("anna", kNow);
  EXPECT_EQ(Take("bob", kNow), 0);
  EXPECT_EQ(Take("../../../anna", kNow), 0);
  EXPECT_FALSE(Exists("/anna"));
}

TEST_F(Tries, ARightPasswordUsesUpNone) {
  for (int i = 0; i < 10; ++i) {
    const Attempts attempts("anna", kLimit, kNow);
    ASSERT_EQ(attempts.Take(), 0);
    attempts.GiveBack();
  }
  Empty("anna", kNow);
  EXPECT_GT(Take("anna", kNow), 0);
}

TEST_F(Tries, AClockThatIsSetBackLocksNobodyOut) {
  Empty("anna", kNow + 1000000);
  EXPECT_EQ(Take("anna", kNow), 10);
  EXPECT_EQ(Take("anna", kNow + 10), 0);
}

TEST_F(Tries, ADamagedFileCountsAsAFullBucket) {
  Empty("anna", kNow);
  for (const std::string damage : {"", "x", "-99999999999999999999999999"}) {
    Write(File(), damage);
    EXPECT_EQ(Take("anna", kNow), 0) << damage;
  }
}

TEST_F(Tries, SimultaneousRequestsNeverShareOne) {
  constexpr int kProcesses = 8;
  std::vector<pid_t> children;
  for (int i = 0; i < kProcesses; ++i) {
    children.push_back(fork());
    if (children.back() == 0) {
      _exit(Take("anna", kNow) == 0 ? 1 : 0);
    }
  }
  int taken = 0;
  for (const pid_t child : children) {
    int status = -1;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    taken += WEXITSTATUS(status);
  }
  EXPECT_EQ(taken, kLimit.tries);
}

TEST_F(Tries, AreRefusedIfTheyCannotBeCounted) {
  MakeDirectory(std::string(kFolder) + "/" + accounts::DigestOf("anna"));
  EXPECT_EQ(Take("anna", kNow), 10);
}

TEST_F(Tries, AreCountedInAFolderThatOthersCannotRead) {
  Take("anna", kNow);
  struct stat status {};
  ASSERT_EQ(stat(Path(kFolder).c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 07777, 0700U);
}

TEST_F(Tries, ABucketIsRemovedAfterADayWithoutUse) {
  constexpr int kDay = 24 * 3600;
  constexpr int kSlack = 600;
  Take("anna", kNow);
  Attempts::Sweep(time(nullptr) + kDay - kSlack);
  EXPECT_FALSE(std::filesystem::is_empty(Path(kFolder)));
  Attempts::Sweep(time(nullptr) + kDay + kSlack);
  EXPECT_TRUE(std::filesystem::is_empty(Path(kFolder)));
}

TEST(Clients, AreIdentifiedByAddressOrIpv6Network) {
  EXPECT_EQ(accounts::ClientOf("192.0.2.7"), "192.0.2.7");
  EXPECT_EQ(accounts::ClientOf("2001:db8:1:2:ff34:4:5:6"), accounts::ClientOf("2001:db8:1:2::9"));
  EXPECT_NE(accounts::ClientOf("2001:db8:1:2::9"), accounts::ClientOf("2001:db8:1:3::9"));
  EXPECT_EQ(accounts::ClientOf(""), "");
}

// Root may read every file, so a link to itself stands for a file that cannot be opened.
TEST_F(Tries, ThatCannotBeReadCountAsUsedUp) {
  Take("anna", kNow);
  const std::string file = Path(File());
  std::filesystem::remove(file);
  std::filesystem::create_symlink(file, file);
  EXPECT_GT(Take("anna", kNow), 0);
  Attempts("anna", kLimit, kNow).GiveBack();
  EXPECT_TRUE(std::filesystem::is_symlink(file)) << "the tries that it counts must not be lost";
}

TEST_F(Tries, AreNotCountedWithoutTheLock) {
  Take("anna", kNow);
  const std::string before = Read(File());
  const std::string lock = Path("/run/mirevo/attempts.lock");
  std::filesystem::remove(lock);
  std::filesystem::create_symlink(lock, lock);
  EXPECT_GT(Take("anna", kNow), 0);
  Attempts("anna", kLimit, kNow).GiveBack();
  EXPECT_EQ(Read(File()), before);
}

}  // namespace
