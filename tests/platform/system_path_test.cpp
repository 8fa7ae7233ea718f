#include <gtest/gtest.h>

#include <cstdlib>

#include "platform/plat.h"
#include "support/sysroot.h"

namespace {

using orvo::SystemPath;

class SystemPaths : public test::Sysroot {};

TEST_F(SystemPaths, LieBelowTheSysroot) {
  EXPECT_EQ(SystemPath("/tmp/Mirevo"), Root() + "/tmp/Mirevo");
  EXPECT_EQ(SystemPath("/etc.defaults/orvoinfo.conf"), Root() + "/etc.defaults/orvoinfo.conf");
}

TEST_F(SystemPaths, AreThemselvesWithoutASysroot) {
  unsetenv("ORVO_SYSROOT");
  EXPECT_EQ(SystemPath("/tmp/Mirevo"), "/tmp/Mirevo");
  setenv("ORVO_SYSROOT", "", 1);
  EXPECT_EQ(SystemPath("/tmp/Mirevo"), "/tmp/Mirevo");
}

TEST_F(SystemPaths, ThatAreNotAbsoluteStayAsTheyAre) {
  EXPECT_EQ(SystemPath("tmp/Mirevo"), "tmp/Mirevo");
  EXPECT_EQ(SystemPath(""), "");
}

TEST_F(SystemPaths, TakeASysrootWithTrailingSlashes) {
  setenv("ORVO_SYSROOT", (Root() + "//").c_str(), 1);
  EXPECT_EQ(SystemPath("/tmp"), Root() + "/tmp");
}

TEST_F(SystemPaths, UnderProcFallBackToTheRealOne) {
  EXPECT_EQ(SystemPath("/proc/cpuinfo"), "/proc/cpuinfo");
  Write("/proc/cpuinfo", "x");
  EXPECT_EQ(SystemPath("/proc/cpuinfo"), Path("/proc/cpuinfo"));
  EXPECT_EQ(SystemPath("/processes"), Path("/processes"));
}

}  // namespace
