#include "policy/registry_sweep.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <csignal>

#include "policy/trans_loading.h"
#include "support/processes.h"
#include "support/sysroot.h"

namespace {

using LibMirevo::StrikeDeadTranscoders;
using test::Child;
using test::JsonArray;
using test::RegistryEntry;

constexpr char kRegistry[] = "/tmp/Mirevo/enabled";

class RegistrySweep : public test::Sysroot {};

TEST_F(RegistrySweep, RemovesEndedProcessesBeforeTheyAreReaped) {
  Child child([] { test::SleepUntilKilled(); });
  WriteJson(kRegistry, JsonArray({RegistryEntry(child.Pid(), false, false),
                                  RegistryEntry(getpid(), true, false)}));
  child.Kill(SIGKILL);
  child.WaitUntilZombie();
  EXPECT_TRUE(StrikeDeadTranscoders());
  EXPECT_EQ(ReadJson(kRegistry), JsonArray({RegistryEntry(getpid(), true, false)}));
  child.Wait();
}

TEST_F(RegistrySweep, DoesNotWaitForAProcessThatHoldsTheRegister) {
  const std::string dead = R"([{"PID":0}])";
  Write(kRegistry, dead);
  const LibMirevo::Lock other(Path(kRegistry), true);
  EXPECT_FALSE(StrikeDeadTranscoders());
  EXPECT_EQ(Read(kRegistry), dead);
}

TEST_F(RegistrySweep, MakesNoRegisterAndRepairsNone) {
  EXPECT_TRUE(StrikeDeadTranscoders());
  EXPECT_FALSE(Exists(kRegistry));
  Write(kRegistry, "no json");
  EXPECT_TRUE(StrikeDeadTranscoders());
  EXPECT_EQ(Read(kRegistry), "no json");
}

}  // namespace
