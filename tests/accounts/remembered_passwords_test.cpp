#include "accounts/remembered_passwords.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

#include "support/sysroot.h"

namespace {

using accounts::FindRemembered;
using accounts::RememberPassword;

constexpr int64_t kNow = 1700000000;
constexpr char kPassword[] = "right password";

class RememberedPasswords : public test::Sysroot {
 protected:
  void SetUp() override {
    Sysroot::SetUp();
    ASSERT_EQ(accounts::Create("anna", kPassword, true, {}), accounts::Outcome::kDone);
    RememberPassword(*accounts::Find("anna"), kPassword, kNow);
  }
};

TEST_F(RememberedPasswords, ARightPasswordIsKnownForTenMinutesAfterItsLastUse) {
  EXPECT_TRUE(FindRemembered("anna", kPassword, kNow + 500));
  EXPECT_TRUE(FindRemembered("anna", kPassword, kNow + 1000));
  EXPECT_FALSE(FindRemembered("anna", kPassword, kNow + 1000 + accounts::kRememberedSeconds + 1));
}

TEST_F(RememberedPasswords, AnotherNameOrPasswordIsNotKnown) {
  EXPECT_FALSE(FindRemembered("anna", "another password", kNow));
  EXPECT_FALSE(FindRemembered("bob", kPassword, kNow));
  EXPECT_FALSE(FindRemembered("", "", kNow));
}

TEST_F(RememberedPasswords, ANewPasswordAndARemovedAccountCountAtOnce) {
  ASSERT_EQ(accounts::SetPassword("anna", "another password"), accounts::Outcome::kDone);
  EXPECT_FALSE(FindRemembered("anna", kPassword, kNow));
  RememberPassword(*accounts::Find("anna"), "another password", kNow);
  ASSERT_EQ(accounts::Remove("anna"), accounts::Outcome::kDone);
  EXPECT_FALSE(FindRemembered("anna", "another password", kNow));
}

TEST_F(RememberedPasswords, NoFileHoldsThePasswordAndOnlyTheServicesUserReadsThem) {
  struct stat status {};
  ASSERT_EQ(stat(Path("/run/mirevo/passwords").c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 0777, 0700U);
  ASSERT_EQ(stat(Path("/run/mirevo/passwords.key").c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 0777, 0600U);
  for (const auto& entry : std::filesystem::recursive_directory_iterator(Path("/run/mirevo"))) {
    if (!entry.is_regular_file()) {
      continue;
    }
    std::ifstream file(entry.path());
    const std::string content{std::istreambuf_iterator<char>(file), {}};
    EXPECT_EQ(content.find(kPassword), std::string::npos) << entry.path();
  }
}

}  // namespace
