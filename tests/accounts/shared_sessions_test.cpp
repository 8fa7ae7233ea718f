// Sessions whose ids are logins, on machines that share their state and on others.
#include <gtest/gtest.h>

#include <filesystem>

#include "accounts/secrets.h"
#include "accounts/sessions.h"
#include "support/sysroot.h"

namespace {

using accounts::BeginSharedSession;
using accounts::EndSharedSession;
using accounts::Login;
using accounts::UseSharedSession;

constexpr int64_t kNow = 1700000000;
constexpr char kPassword[] = "right password";
constexpr char kId[] = "a sealed id";
constexpr int64_t kDay = 24 * 3600;

class SharedSessions : public test::Sysroot {
 protected:
  void SetUp() override {
    Sysroot::SetUp();
    std::filesystem::create_directories(Path("/storage"));
    std::filesystem::create_directories(Path("/var/packages/Mirevo/etc"));
    std::filesystem::create_directory_symlink(Path("/storage"),
                                              Path("/var/packages/Mirevo/etc/shared"));
    ASSERT_EQ(accounts::Create("anna", kPassword, true, {}), accounts::Outcome::kDone);
  }

  static Login Begin(const std::string& id = kId, int64_t now = kNow) {
    const auto anna = accounts::Find("anna").value();
    EXPECT_TRUE(BeginSharedSession(id, anna, now));
    return {anna.name, anna.era, now};
  }
  // As on a machine that does not share the sessions.
  void ForgetSessions() const { std::filesystem::remove_all(Path("/storage/sessions")); }
  std::string FileOf(const std::string& id) const {
    return Path("/storage/sessions/" + accounts::DigestOf(id));
  }
};

TEST_F(SharedSessions, AreKeptInTheSharedState) {
  const Login login = Begin();
  EXPECT_EQ(UseSharedSession(kId, login, kNow)->name, "anna");
  EXPECT_TRUE(std::filesystem::exists(FileOf(kId)));
  EXPECT_FALSE(std::filesystem::exists(Path("/run/mirevo/sessions")));
}

TEST_F(SharedSessions, AreValidWithoutTheirFile) {
  const Login login = Begin();
  ForgetSessions();
  EXPECT_TRUE(UseSharedSession(kId, login, kNow));
}

TEST_F(SharedSessions, EndWithALogoutWhereverTheFileIs) {
  const Login login = Begin();
  EndSharedSession(kId, login, kNow);
  EXPECT_FALSE(UseSharedSession(kId, login, kNow));
  ForgetSessions();
  EndSharedSession(kId, login, kNow);
  EXPECT_FALSE(UseSharedSession(kId, login, kNow));
}

TEST_F(SharedSessions, StayEndedUntilTheyWouldBeOver) {
  const auto now = static_cast<int64_t>(time(nullptr));
  const Login login = Begin(kId, now);
  EndSharedSession(kId, login, now);
  Begin("another", now + 29 * kDay);
  EXPECT_TRUE(std::filesystem::exists(FileOf(kId)));
  EXPECT_FALSE(UseSharedSession(kId, login, now + 29 * kDay));
  Begin("a third", now + 31 * kDay);
  EXPECT_FALSE(std::filesystem::exists(FileOf(kId)));
  EXPECT_FALSE(UseSharedSession(kId, login, now + 31 * kDay));
}

TEST_F(SharedSessions, LeaveNoFileWhenTheirLoginIsTooOldToCountWithoutIt) {
  const Login login = Begin();
  ASSERT_TRUE(UseSharedSession(kId, login, kNow + 20 * kDay));
  EndSharedSession(kId, login, kNow + 40 * kDay);
  EXPECT_FALSE(std::filesystem::exists(FileOf(kId)));
  EXPECT_FALSE(UseSharedSession(kId, login, kNow + 40 * kDay));
}

TEST_F(SharedSessions, AreRemovedWhereSessionsOnlyEnd) {
  const Login first = Begin("first");
  EndSharedSession("first", first, kNow);
  const Login second = {first.account, first.era, kNow + 31 * kDay};
  EndSharedSession("second", second, second.begun);
  EXPECT_FALSE(std::filesystem::exists(FileOf("first")));
  EXPECT_FALSE(UseSharedSession("first", first, second.begun));
  EXPECT_TRUE(std::filesystem::exists(FileOf("second")));
  EXPECT_FALSE(UseSharedSession("second", second, second.begun));
}

TEST_F(SharedSessions, OfAClockThatIsAheadWaitForTheirTime) {
  const Login login = Begin(kId, kNow + kDay);
  EXPECT_FALSE(UseSharedSession(kId, login, kNow));
  ForgetSessions();
  EXPECT_FALSE(UseSharedSession(kId, login, kNow));
  EXPECT_TRUE(UseSharedSession(kId, login, kNow + kDay));
}

TEST_F(SharedSessions, MayComeFromAClockThatIsAFewMinutesAhead) {
  const Login login = Begin(kId, kNow + 240);
  EXPECT_TRUE(UseSharedSession(kId, login, kNow));
}

TEST_F(SharedSessions, CountTheIdleTimeFromTheLastUse) {
  const Login login = Begin();
  ASSERT_TRUE(UseSharedSession(kId, login, kNow + 20 * kDay));
  EXPECT_TRUE(UseSharedSession(kId, login, kNow + 40 * kDay));
  ForgetSessions();
  EXPECT_FALSE(UseSharedSession(kId, login, kNow + 40 * kDay)) << "known from the login only";
}

TEST_F(SharedSessions, EndAfterHalfAYearOfUse) {
  const Login login = Begin();
  for (int day = 0; day <= 180; day += 20) {
    ASSERT_TRUE(UseSharedSession(kId, login, kNow + day * kDay)) << day;
  }
  EXPECT_FALSE(UseSharedSession(kId, login, kNow + 181 * kDay));
}

TEST_F(SharedSessions, EndWithTheEraOfTheirAccount) {
  const Login first = Begin();
  accounts::SetPassword("anna", "another password");
  EXPECT_FALSE(UseSharedSession(kId, first, kNow));
  const Login second = Begin("second");
  EXPECT_EQ(accounts::EndSessions("anna"), accounts::Outcome::kDone);
  EXPECT_FALSE(UseSharedSession("second", second, kNow));
  const Login third = Begin("third");
  accounts::Remove("anna");
  EXPECT_FALSE(UseSharedSession("third", third, kNow));
}

TEST_F(SharedSessions, EndWhenTheirAccountHasTooMany) {
  const Login oldest = Begin(kId, kNow - 1);
  for (int i = 0; i < accounts::kSessionsPerAccount; ++i) {
    Begin("session " + std::to_string(i));
  }
  EXPECT_FALSE(UseSharedSession(kId, oldest, kNow));
}

TEST_F(SharedSessions, AreRefusedWhileTheirFileIsDamaged) {
  const Login login = Begin();
  Write("/storage/sessions/" + accounts::DigestOf(kId), R"({"account": "anna"})");
  EXPECT_FALSE(UseSharedSession(kId, login, kNow)) << "it may have said that the session has ended";
}

TEST_F(SharedSessions, OfALoginThatTheFileDoesNotTellAreRefused) {
  Login login = Begin();
  login.begun += 1;
  EXPECT_FALSE(UseSharedSession(kId, login, kNow));
}

}  // namespace
