#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstring>
#include <thread>

#include "platform/plat.h"
#include "support/processes.h"
#include "support/sysroot.h"

namespace {

using test::Child;
using test::InChild;
using test::Pipe;

class Process : public test::Sysroot {};

TEST_F(Process, RunGivesTheExitStatus) {
  EXPECT_EQ(PlatExecv("/bin/sh", {"/bin/sh", "-c", "exit 0"}), 0);
  EXPECT_EQ(PlatExecv("/bin/sh", {"/bin/sh", "-c", "exit 37"}), 37);
  EXPECT_EQ(PlatExec("/bin/sh", "-c", "exit 3"), 3);
}

TEST_F(Process, RunGivesTheSignalThatEndedTheProgramAbove128) {
  EXPECT_EQ(PlatExec("/bin/sh", "-c", "kill -KILL $$"), 128 + SIGKILL);
}

TEST_F(Process, RunOfAMissingOrUnrunnableProgramIsMinusOne) {
  Write("/plain", "no program");
  EXPECT_EQ(PlatExec(Path("/missing")), -1);
  EXPECT_EQ(PlatExec(Path("/plain")), -1);
}

TEST_F(Process, RunPassesArgumentsUntouchedByAnyShell) {
  const std::string program =
      WriteScript("/show", "printf '%s\\n' \"$@\" > \"$ORVO_SYSROOT/shown\"\n");
  EXPECT_EQ(PlatExec(program, "a b", "$HOME", "`id`", ";", "", "*", "'\""), 0);
  EXPECT_EQ(Read("/shown"), "a b\n$HOME\n`id`\n;\n\n*\n'\"\n");
}

TEST_F(Process, ABoundedRunGivesTheExitStatus) {
  EXPECT_EQ(orvo::RunWithin("/bin/sh", {"/bin/sh", "-c", "exit 37"}, 10000), 37);
  EXPECT_EQ(orvo::RunWithin(Path("/missing"), {Path("/missing")}, 10000), 127);
}

TEST_F(Process, ABoundedRunAppendsWhatTheProgramWrites) {
  std::string output = "before ";
  const int status = orvo::RunWithin("/bin/sh", {"/bin/sh", "-c", "echo out; echo err >&2; exit 3"},
                                     10000, &output);
  EXPECT_EQ(status, 3);
  EXPECT_EQ(output, "before out\n");
}

TEST_F(Process, ABoundedRunIsKilledWhenItsTimeIsOver) {
  EXPECT_EQ(orvo::RunWithin("/bin/sh", {"/bin/sh", "-c", "kill -STOP $$"}, 50), 128 + SIGKILL);
}

TEST_F(Process, ABoundedRunEndsWithItsCaller) {
  Pipe pipe;
  const std::string script = "echo x >&" + std::to_string(pipe.WriteEnd()) + "; kill -STOP $$";
  Child caller([&] {
    fcntl(pipe.WriteEnd(), F_SETFD, 0);
    orvo::RunWithin("/bin/sh", {"/bin/sh", "-c", script}, 60000);
  });
  EXPECT_EQ(pipe.Read(2), "x\n");
  caller.Kill(SIGKILL);
  caller.Wait();
  EXPECT_EQ(pipe.ReadToEnd(), "");
  test::ReapAll();
}

TEST_F(Process, RunLooksForNoProgramInThePath) {
  EXPECT_EQ(PlatExec("true"), -1);
}

TEST_F(Process, RunGivesTheProgramUnblockedSignals) {
  InChild([] {
    sigset_t all;
    sigfillset(&all);
    sigprocmask(SIG_BLOCK, &all, nullptr);
    signal(SIGPIPE, SIG_IGN);
    EXPECT_EQ(PlatExec("/bin/sh", "-c", "kill -TERM $$; exit 0"), 128 + SIGTERM);
    EXPECT_EQ(PlatExec("/bin/sh", "-c", "kill -PIPE $$; exit 0"), 128 + SIGPIPE);
  });
}

TEST_F(Process, RunTellsTheStatusAlsoWhereTheCallerIgnoresItsChildren) {
  InChild([] {
    signal(SIGCHLD, SIG_IGN);
    EXPECT_EQ(PlatExec("/bin/sh", "-c", "exit 0"), 0);
    EXPECT_EQ(PlatExec("/bin/sh", "-c", "exit 4"), 4);
    EXPECT_EQ(signal(SIGCHLD, SIG_DFL), SIG_IGN) << "the caller's choice stays";
  });
}

TEST_F(Process, ADetachedChildBelongsToItsCallerFromTheStartToNobody) {
  InChild([] {
    // Without a subreaper in this process its orphans go to the one above, as to init.
    prctl(PR_SET_CHILD_SUBREAPER, 0);
    Pipe report;
    const pid_t caller = getpid();
    const int result = PlatProcForkChildNoWait();
    if (result == 0) {
      report.Write(getppid() == caller ? "child" : "orphan");
      _exit(0);
    }
    EXPECT_EQ(result, 1);
    EXPECT_TRUE(test::HasNoChild()) << "nothing to reap";
    EXPECT_EQ(report.ReadToEnd(), "orphan");
  });
  test::ReapAll();
}

TEST_F(Process, ADetachedChildIsMadeAlsoWhereTheCallerIgnoresItsChildren) {
  InChild([] {
    signal(SIGCHLD, SIG_IGN);
    Pipe report;
    const int result = PlatProcForkChildNoWait();
    if (result == 0) {
      report.Write("here");
      _exit(0);
    }
    EXPECT_EQ(result, 1);
    EXPECT_EQ(report.ReadToEnd(), "here");
    signal(SIGCHLD, SIG_DFL);
    test::ReapAll();
  });
}

TEST_F(Process, AliveMeansRunning) {
  EXPECT_TRUE(PlatProcAlive(getpid()));
  EXPECT_TRUE(PlatProcAlive(1));
  EXPECT_FALSE(PlatProcAlive(0));
  EXPECT_FALSE(PlatProcAlive(-1));
  EXPECT_FALSE(PlatProcAlive(INT_MAX));

  Child child(test::SleepUntilKilled);
  EXPECT_TRUE(PlatProcAlive(child.Pid()));
  child.Kill(SIGKILL);
  child.Wait();
  EXPECT_FALSE(PlatProcAlive(child.Pid()));
}

TEST_F(Process, AStoppedProcessIsAlive) {
  Child child([] { test::StopHere(); });
  ASSERT_TRUE(child.WaitUntilStopped());
  EXPECT_TRUE(PlatProcAlive(child.Pid()));
}

TEST_F(Process, AZombieIsNotAlive) {
  Child child([] {});
  child.WaitUntilZombie();
  EXPECT_EQ(kill(child.Pid(), 0), 0) << "its number is still taken";
  EXPECT_FALSE(PlatProcAlive(child.Pid()));
}

TEST_F(Process, AThreadIsNoProcess) {
  Pipe release;
  Pipe report;
  std::thread thread([&] {
    const auto id = static_cast<pid_t>(syscall(SYS_gettid));
    report.Write(std::string(reinterpret_cast<const char*>(&id), sizeof(id)));
    release.Read(1);
  });
  pid_t id = 0;
  memcpy(&id, report.Read(sizeof(id)).data(), sizeof(id));
  EXPECT_NE(id, getpid());
  EXPECT_FALSE(PlatProcAlive(id));
  release.Write("x");
  thread.join();
}

TEST_F(Process, AnotherUsersProcessIsAlive) {
  if (geteuid() != 0) {
    GTEST_SKIP() << "needs root";
  }
  Child other(test::SleepUntilKilled);
  InChild([&other] {
    ASSERT_EQ(setresuid(65534, 65534, 65534), 0);
    EXPECT_TRUE(PlatProcAlive(other.Pid()));
  });
}

TEST_F(Process, WaitingForAnEndTellsWhetherItCameInTime) {
  Child child(test::SleepUntilKilled);
  EXPECT_FALSE(orvo::WaitForExit(child.Pid(), 1));
  child.Kill(SIGKILL);
  EXPECT_TRUE(orvo::WaitForExit(child.Pid(), 30000));
  EXPECT_TRUE(orvo::WaitForExit(0, 30000));
  EXPECT_TRUE(orvo::WaitForExit(-1, 30000));
}

TEST_F(Process, APidFileHoldsOneNumber) {
  const struct {
    const char* content;
    pid_t pid;
  } cases[] = {{"123", 123}, {"123\n", 123}, {" 123 \n", 123}, {"123\n456\n", 123},
               {"", -1},     {"\n123", -1},  {"abc", -1},      {"99999999999999", -1}};
  for (const auto& row : cases) {
    Write("/run/x.pid", row.content);
    EXPECT_EQ(PlatReadPidFile(Path("/run/x.pid")), row.pid) << row.content;
  }
  EXPECT_EQ(PlatReadPidFile(Path("/run/missing.pid")), -1);
}

}  // namespace
