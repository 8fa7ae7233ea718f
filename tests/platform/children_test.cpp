#include "platform/children.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <csignal>

#include "platform/process.h"
#include "support/processes.h"

namespace {

using test::Child;
using test::InChild;

[[noreturn]] void IgnoreRequests() {
  signal(SIGTERM, SIG_IGN);
  test::StopHere();
  test::SleepUntilKilled();
}

TEST(Children, AStoppedOneThatIsAskedToEndEnds) {
  Child child([] {
    test::StopHere();
    test::SleepUntilKilled();
  });
  ASSERT_TRUE(child.WaitUntilStopped());
  EXPECT_EQ(orvo::AskToEnd(child.Pid(), SIGTERM), 0);
  EXPECT_EQ(child.Wait(), 128 + SIGTERM);
  EXPECT_EQ(orvo::AskToEnd(child.Pid(), SIGTERM), -1) << "it is gone";
  EXPECT_EQ(orvo::AskToEnd(0, SIGTERM), -1) << "a process group";
}

TEST(Children, StoppedOnesContinueAndThoseBelowThem) {
  Child parent([] {
    Child child([] {
      test::StopHere();
      _exit(3);
    });
    ASSERT_TRUE(child.WaitUntilStopped());
    test::StopHere();
    _exit(child.Wait());
  });
  ASSERT_TRUE(parent.WaitUntilStopped());
  orvo::ContinueDescendants();
  EXPECT_EQ(parent.Wait(), 3);
}

TEST(Children, TheyEndAllAndThoseThatTheyLeaveBehind) {
  InChild([] {
    orvo::AdoptOrphans();
    const Child stubborn(IgnoreRequests);
    Child parent([] {
      const Child orphan(test::SleepUntilKilled);
      test::StopHere();
      test::SleepUntilKilled();
    });
    ASSERT_TRUE(parent.WaitUntilStopped());
    orvo::EndChildren(100);
    EXPECT_TRUE(test::HasNoChild());
  });
}

}  // namespace
