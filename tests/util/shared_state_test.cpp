#include "util/shared_state.h"

#include <gtest/gtest.h>

#include <filesystem>

#include "support/sysroot.h"

namespace {

class SharedState : public test::Sysroot {
 protected:
  void Link(const std::string& target) const {
    std::filesystem::create_directories(Path("/var/packages/Mirevo/etc"));
    std::filesystem::create_symlink(target, Path("/var/packages/Mirevo/etc/shared"));
  }
};

TEST_F(SharedState, IsThisMachinesOwnWithoutAnEntry) {
  EXPECT_FALSE(orvo::IsStateShared());
  EXPECT_EQ(orvo::SharedStatePath("accounts"), Path("/var/packages/Mirevo/etc/accounts"));
}

TEST_F(SharedState, IsBehindTheEntryEvenIfTheStorageIsMissing) {
  Link("/nowhere");
  EXPECT_TRUE(orvo::IsStateShared());
  EXPECT_EQ(orvo::SharedStatePath("accounts"), Path("/var/packages/Mirevo/etc/shared/accounts"));
}

}  // namespace
