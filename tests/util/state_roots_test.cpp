#include "util/state_roots.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <string>

#include "support/sysroot.h"

namespace {

constexpr uid_t kStranger = 65534;

class StateRoots : public test::Sysroot {
 protected:
  // The sentence about a folder that is as it should be but for `damage`.
  template <typename Damage>
  std::string ProblemAfter(const std::string& folder, Damage damage) const {
    MakeDirectory(folder);
    damage(Path(folder));
    return orvo::StateProblem();
  }
};

TEST_F(StateRoots, AreFineWhereTheyAreMissingOrOwn) {
  EXPECT_EQ(orvo::StateProblem(), "");
  MakeDirectory("/tmp/Mirevo/tickets");
  MakeDirectory("/run/mirevo");
  EXPECT_EQ(orvo::StateProblem(), "");
}

TEST_F(StateRoots, ThatOthersMayChangeAreRefused) {
  for (const char* folder : {"/tmp/Mirevo", "/tmp/Mirevo/HLS", "/run/mirevo"}) {
    for (const mode_t mode : {0777, 0775, 0757}) {
      const std::string problem = ProblemAfter(
          folder, [&](const std::string& path) { ASSERT_EQ(chmod(path.c_str(), mode), 0); });
      EXPECT_EQ(problem.rfind(Path(folder) + " ", 0), 0U) << problem;
      chmod(Path(folder).c_str(), 0700);
    }
  }
}

TEST_F(StateRoots, ThatAreLinksAreRefused) {
  MakeDirectory("/elsewhere");
  MakeDirectory("/tmp");
  std::filesystem::create_directory_symlink(Path("/elsewhere"), Path("/tmp/Mirevo"));
  EXPECT_NE(orvo::StateProblem(), "");
}

TEST_F(StateRoots, OfAnotherUserAreRefused) {
  if (geteuid() != 0) {
    GTEST_SKIP() << "only root can make another user's folder";
  }
  EXPECT_NE(ProblemAfter("/tmp/Mirevo",
                         [](const std::string& path) {
                           ASSERT_EQ(chown(path.c_str(), kStranger, kStranger), 0);
                         }),
            "");
}

}  // namespace
