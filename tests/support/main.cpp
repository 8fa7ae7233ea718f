// The test program: a subreaper, so that whatever a test leaves running ends up here and is
// noticed.
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

// What a set-uid copy of this program is for: it prints where a system path lies. 126: it is not
// set-uid.
int PrintSystemPath(const char* path) {
  if (geteuid() == getuid()) {
    return 126;
  }
  fputs(orvo::SystemPath(path).c_str(), stdout);
  return 0;
}

}  // namespace

#ifdef __SANITIZE_ADDRESS__
// The media libraries are loaded on first use and stay; what they and the libraries that they bring
// keep until the end of the process is theirs.
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
