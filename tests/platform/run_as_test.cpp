#include "platform/run_as.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <syslog.h>
#include <unistd.h>

#include <array>

#include "platform/plat.h"
#include "support/log_capture.h"
#include "support/processes.h"
#include "support/sysroot.h"

namespace {

constexpr uid_t kNobody = 65534;
using Ids = std::array<uid_t, 3>;

Ids UserIds() {
  Ids ids{};
  getresuid(ids.data(), &ids[1], &ids[2]);
  return ids;
}

Ids GroupIds() {
  Ids ids{};
  getresgid(ids.data(), &ids[1], &ids[2]);
  return ids;
}

class RunAs : public test::Sysroot {
 protected:
  void SetUp() override {
    if (geteuid() != 0) {
      GTEST_SKIP() << "needs root";
    }
    Sysroot::SetUp();
  }

  // Checks in a process with these ids that a root scope makes it root and gives the ids back.
  static void ExpectSwitches(const Ids& users, const Ids& groups) {
    test::InChild([&] {
      ASSERT_EQ(setresgid(groups[0], groups[1], groups[2]), 0);
      ASSERT_EQ(setresuid(users[0], users[1], users[2]), 0);
      bool ran = false;
      IF_RUN_AS(0, 0) {
        ran = true;
        EXPECT_EQ(geteuid(), 0U);
        EXPECT_EQ(getegid(), 0U);
      }
      EXPECT_TRUE(ran);
      EXPECT_EQ(UserIds(), users);
      EXPECT_EQ(GroupIds(), groups);
      EXPECT_TRUE(test::TakeLog().empty());
    });
  }
};

TEST_F(RunAs, AProcessThatMayBecomeRootDoesSoForTheScopeAndNoLonger) {
  ExpectSwitches({kNobody, kNobody, 0}, {kNobody, kNobody, kNobody});
  ExpectSwitches({kNobody, kNobody, 0}, {kNobody, kNobody, 0});
  ExpectSwitches({0, kNobody, kNobody}, {0, kNobody, kNobody});
  ExpectSwitches({0, kNobody, 0}, {kNobody, kNobody, kNobody});
  ExpectSwitches({kNobody, 0, 0}, {kNobody, kNobody, kNobody});
  ExpectSwitches({0, 0, 0}, {0, 0, 0});
  ExpectSwitches({0, 0, 0}, {100, 100, 100});
}

TEST_F(RunAs, AProcessWithoutRootKeepsItsIdsAndLogsNothing) {
  test::InChild([] {
    ASSERT_EQ(setresgid(kNobody, kNobody, kNobody), 0);
    ASSERT_EQ(setresuid(kNobody, kNobody, kNobody), 0);
    bool ran = false;
    IF_RUN_AS(0, 0) {
      ran = true;
      EXPECT_EQ(geteuid(), kNobody);
      EXPECT_EQ(getegid(), kNobody);
    }
    EXPECT_TRUE(ran);
    EXPECT_TRUE(libmrv::DoActionAsRoot("action", [] { return geteuid() == kNobody; }));
    EXPECT_TRUE(test::TakeLog().empty());
  });
}

TEST_F(RunAs, RootCanTakeAnotherUsersIds) {
  test::InChild([] {
    IF_RUN_AS(1024, 100) {
      EXPECT_EQ(geteuid(), 1024U);
      EXPECT_EQ(getegid(), 100U);
      EXPECT_TRUE(libmrv::DoActionAsRoot("inner", [] { return geteuid() == 0; }));
      EXPECT_EQ(geteuid(), 1024U);
    }
    EXPECT_EQ(geteuid(), 0U);
    EXPECT_EQ(getegid(), 0U);
  });
}

TEST_F(RunAs, AnIdThatCannotBeTakenSkipsTheScopeAndIsLoggedForTheAuthorities) {
  test::InChild([] {
    bool ran = false;
    IF_RUN_AS(static_cast<uid_t>(-1), static_cast<gid_t>(-1)) {
      ran = true;
    }
    if (ran) {
      // The kernel takes -1 for "as it is"; then nothing was switched.
      EXPECT_EQ(geteuid(), 0U);
      return;
    }
    const auto log = test::TakeLog();
    ASSERT_EQ(log.size(), 1U);
    EXPECT_EQ(log[0].priority, LOG_AUTH | LOG_ERR);
    EXPECT_EQ(test::WithoutLineNumber(log[0].text), "run_as_test:N ERROR: IF_RUN_AS(-1, -1)");
    EXPECT_EQ(geteuid(), 0U);
    EXPECT_EQ(getegid(), 0U);
  });
}

TEST_F(RunAs, AnActionRunsAsRootAndItsResultComesBack) {
  test::InChild([] {
    ASSERT_EQ(setresuid(kNobody, kNobody, 0), 0);
    EXPECT_TRUE(libmrv::DoActionAsRoot("action", [] { return geteuid() == 0; }));
    EXPECT_FALSE(libmrv::DoActionAsRoot("action", [] { return false; }));
    EXPECT_EQ(UserIds(), (Ids{kNobody, kNobody, 0}));
  });
}

TEST_F(RunAs, IdsComeBackWhenAnActionThrows) {
  test::InChild([] {
    ASSERT_EQ(setresuid(kNobody, kNobody, 0), 0);
    EXPECT_THROW(libmrv::DoActionAsRoot("action", []() -> bool { throw 1; }), int);
    EXPECT_EQ(geteuid(), kNobody);
  });
}

TEST_F(RunAs, ASetUidProgramIgnoresTheSysroot) {
  // A copy of this program that belongs to root, marked set-uid, and run by somebody else.
  MakeDirectory("/bin");
  ASSERT_EQ(
      PlatExec("/bin/cp", "-L", "/proc/" + std::to_string(getpid()) + "/exe", Path("/bin/probe")),
      0);
  ASSERT_EQ(chmod(Path("/bin/probe").c_str(), 04755), 0);
  test::Pipe output;
  test::Child child([&] {
    dup2(output.WriteEnd(), STDOUT_FILENO);
    ASSERT_EQ(setresuid(kNobody, kNobody, kNobody), 0);
    setenv("ORVO_TEST_PRINT_SYSTEM_PATH", "/tmp/Mirevo", 1);
    execl(Path("/bin/probe").c_str(), "probe", nullptr);
    _exit(127);
  });
  const std::string printed = output.ReadToEnd();
  const int status = child.Wait();
  if (status == 126) {
    GTEST_SKIP() << "the file system honours no set-uid programs";
  }
  EXPECT_EQ(status, 0);
  EXPECT_EQ(printed, "/tmp/Mirevo");
}

}  // namespace
