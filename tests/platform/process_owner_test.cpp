#include <gtest/gtest.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <utility>

#include "platform/process_launch.h"
#include "support/chosen_pid.h"
#include "support/processes.h"

namespace {

using orvo::Process;
using test::Child;
using test::InChild;

Process Shell(const std::string& script) {
  return orvo::Start({"/bin/sh", {"sh", "-c", script}});
}

// Runs until it is told to stop.
Process Sleeper() {
  return orvo::Fork([]() -> int { test::SleepUntilKilled(); });
}

bool IsRunning(const Process& process) {
  return process && !process.HasEndedWithin(0);
}

TEST(ProcessOwner, TellsTheStatusAsOftenAsOneAsks) {
  Process process = Shell("exit 3");
  EXPECT_EQ(process.Wait(), 3);
  EXPECT_EQ(process.Wait(), 3);
  EXPECT_EQ(process.WaitFor(0), 3);
}

TEST(ProcessOwner, WaitsNoLongerThanItIsTold) {
  Process process = Sleeper();
  EXPECT_EQ(process.WaitFor(0), std::nullopt);
  EXPECT_EQ(process.WaitFor(1), std::nullopt);
  EXPECT_FALSE(process.HasEndedWithin(1));
  EXPECT_TRUE(process.Signal(SIGTERM));
  EXPECT_EQ(process.WaitFor(-1), 128 + SIGTERM);
}

TEST(ProcessOwner, LeavesAnEndedChildForItsReaping) {
  Process process = Shell("exit 3");
  EXPECT_TRUE(process.HasEndedWithin(-1));
  EXPECT_FALSE(test::HasNoChild());
  EXPECT_EQ(process.WaitFor(0), 3);
  EXPECT_TRUE(test::HasNoChild());
}

TEST(ProcessOwner, KillsAndReapsAChildThatItLeaves) {
  InChild([] {
    const Process witness = [] {
      const Process process = Sleeper();
      return Process::Open(process.Pid());
    }();
    EXPECT_FALSE(IsRunning(witness));
    EXPECT_TRUE(test::HasNoChild());
  });
}

TEST(ProcessOwner, KillsAChildForWhichItTakesAnother) {
  Process process = Sleeper();
  const Process witness = Process::Open(process.Pid());
  process = Shell("exit 3");
  EXPECT_FALSE(IsRunning(witness));
  EXPECT_EQ(process.Wait(), 3);
}

TEST(ProcessOwner, MovesItsChild) {
  Process first = Sleeper();
  const pid_t pid = first.Pid();
  Process second = std::move(first);
  EXPECT_EQ(second.Pid(), pid);
  EXPECT_TRUE(IsRunning(second));
  EXPECT_EQ(second.End(SIGKILL, -1), 128 + SIGKILL);
}

TEST(ProcessOwner, GivesAChildUp) {
  pid_t pid = -1;
  {
    Process process = Sleeper();
    pid = process.Release();
    EXPECT_FALSE(process);
  }
  const Process witness = Process::Open(pid);
  EXPECT_TRUE(IsRunning(witness));
  EXPECT_EQ(orvo::SendSignal(pid, SIGKILL), 0);
  test::ReapAll();
}

TEST(ProcessOwner, LetsAProcessRunThatItOnlyOpened) {
  Child other(test::SleepUntilKilled);
  { const Process process = Process::Open(other.Pid()); }
  Process process = Process::Open(other.Pid());
  EXPECT_TRUE(IsRunning(process));
  EXPECT_TRUE(process.Signal(SIGTERM));
  EXPECT_EQ(process.Wait(), -1) << "only a parent may ask";
  EXPECT_EQ(other.Wait(), 128 + SIGTERM);
}

TEST(ProcessOwner, OpensNoProcessThatIsNone) {
  EXPECT_FALSE(Process::Open(INT_MAX));
  EXPECT_EQ(errno, ESRCH);
  EXPECT_FALSE(Process::Open(-1));
}

TEST(ProcessOwner, EndsAChildGentlyWhereThatIsEnough) {
  EXPECT_EQ(Sleeper().End(SIGTERM, -1), 128 + SIGTERM);
}

TEST(ProcessOwner, KillsAChildThatDoesNotEndInTime) {
  orvo::LaunchOptions options;
  options.actions = {{SIGTERM, SIG_IGN}};
  Process process = orvo::Fork([]() -> int { test::SleepUntilKilled(); }, options);
  EXPECT_EQ(process.End(SIGTERM, 1), 128 + SIGKILL);
}

TEST(ProcessOwner, OwnsNothingInAForkedProcess) {
  Process process = Sleeper();
  orvo::Process fork = orvo::Fork([&] {
    const Process copy = std::move(process);
    return 0;
  });
  EXPECT_EQ(fork.Wait(), 0);
  EXPECT_TRUE(IsRunning(process));
}

TEST(ProcessOwner, SignalsNoProcessThatGotTheNumberLater) {
  Process process = Shell("exit 0");
  EXPECT_EQ(process.Wait(), 0);
  const pid_t later = test::ForkAs(process.Pid());
  if (later < 0) {
    GTEST_SKIP() << "numbers cannot be chosen here";
  }
  ASSERT_EQ(later, process.Pid());
  EXPECT_FALSE(process.Signal(SIGKILL));
  EXPECT_EQ(errno, ESRCH);
  EXPECT_EQ(process.End(SIGKILL, 0), 0) << "its own end, long ago";
  Process heir = Process::Open(later);
  EXPECT_TRUE(IsRunning(heir));
  heir.Signal(SIGKILL);
  test::ReapAll();
}

TEST(ProcessOwner, IsNoProcessAtFirst) {
  Process process;
  EXPECT_FALSE(process);
  EXPECT_EQ(process.Pid(), -1);
  EXPECT_FALSE(process.Signal(SIGTERM));
  EXPECT_TRUE(process.HasEndedWithin(-1));
  EXPECT_EQ(process.Wait(), -1);
}

TEST(ProcessOwner, ToleratesThatSomebodyElseReapsItsChild) {
  Process process = Shell("exit 3");
  test::ReapAll();
  EXPECT_EQ(process.Wait(), -1);
}

TEST(SendSignal, RefusesNumbersThatNameGroups) {
  InChild([] {
    ASSERT_EQ(setpgid(0, 0), 0);
    for (const pid_t number : {0, -1, -getpid()}) {
      EXPECT_EQ(orvo::SendSignal(number, SIGTERM), -1);
      EXPECT_EQ(errno, ESRCH);
    }
  });
}

TEST(SendSignal, SignalsTheProcessWithTheNumber) {
  Child other(test::SleepUntilKilled);
  EXPECT_EQ(orvo::SendSignal(other.Pid(), SIGTERM), 0);
  EXPECT_EQ(other.Wait(), 128 + SIGTERM);
}

}  // namespace
