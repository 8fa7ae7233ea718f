#include "util/private_folder.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include "support/processes.h"
#include "support/sysroot.h"

namespace {

constexpr uid_t kStranger = 65534;

class PrivateFolder : public test::Sysroot {
 protected:
  mode_t ModeOf(const std::string& path) const {
    struct stat status {};
    return stat(Path(path).c_str(), &status) == 0 ? status.st_mode & ACCESSPERMS : 0;
  }
};

TEST_F(PrivateFolder, IsClosedToOthersAndItsParentsAreNot) {
  EXPECT_TRUE(orvo::MakePrivateFolder(Path("/a/b/c")));
  EXPECT_EQ(ModeOf("/a/b/c"), 0700U);
  EXPECT_EQ(ModeOf("/a/b"), 0755U);
}

TEST_F(PrivateFolder, ThatWasOpenIsClosed) {
  MakeDirectory("/a");
  ASSERT_EQ(chmod(Path("/a").c_str(), 0777), 0);
  EXPECT_TRUE(orvo::MakePrivateFolder(Path("/a")));
  EXPECT_EQ(ModeOf("/a"), 0700U);
}

TEST_F(PrivateFolder, IsNeitherALinkNorAFile) {
  MakeDirectory("/a");
  Write("/file", "");
  ASSERT_EQ(symlink(Path("/a").c_str(), Path("/link").c_str()), 0);
  EXPECT_FALSE(orvo::MakePrivateFolder(Path("/link")));
  EXPECT_FALSE(orvo::MakePrivateFolder(Path("/file")));
  EXPECT_FALSE(orvo::IsOwnFolder(Path("/link")));
}

TEST_F(PrivateFolder, OfAnotherUserIsNotUsed) {
  if (geteuid() != 0) {
    GTEST_SKIP() << "only root can act for two users";
  }
  MakeDirectory("/a");
  test::InChild([&] {
    ASSERT_EQ(seteuid(kStranger), 0);
    EXPECT_FALSE(orvo::IsOwnFolder(Path("/a")));
    EXPECT_FALSE(orvo::MakePrivateFolder(Path("/a")));
  });
}

}  // namespace
