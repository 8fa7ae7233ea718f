// The test program. It is a subreaper, so it adopts and detects every process that a test leaves
// running.
#include <gtest/gtest.h>
#include <sys/prctl.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>

#include "platform/plat.h"
#include "support/processes.h"

namespace {

class NothingLeft : public testing::EmptyTestEventListener {
  void OnTestEnd(const testing::TestInfo& /*test*/) override {
    EXPECT_TRUE(test::HasNoChild()) << "the test left a process behind";
  }
};

// The task of a set-uid copy of this program: it prints the real location of a system path. Exits
// with 126 if it is not set-uid.
int PrintSystemPath(const char* path) {
  if (geteuid() == getuid()) {
    return 126;
  }
  fputs(orvo::SystemPath(path).c_str(), stdout);
  return 0;
}

}  // namespace

#ifdef __SANITIZE_ADDRESS__
// The media libraries are loaded on first use and stay loaded. Memory that they keep until the end
// of the process is not a leak of the code under test.
extern "C" __attribute__((visibility("default"))) const char* __lsan_default_suppressions() {
  return "leak:libfontconfig.so\nleak:libglib-2.0.so\nleak:libgomp.so\nleak:libp11-kit.so\n"
         "leak:dl_init\n";
}
#endif

int main(int argc, char** argv) {
  if (const char* path = std::getenv("ORVO_TEST_PRINT_SYSTEM_PATH"); path != nullptr) {
    return PrintSystemPath(path);
  }
  testing::InitGoogleTest(&argc, argv);
  prctl(PR_SET_CHILD_SUBREAPER, 1);
  testing::UnitTest::GetInstance()->listeners().Append(new NothingLeft);
  const int result = RUN_ALL_TESTS();
  return test::HasNoChild() ? result : 1;
}
