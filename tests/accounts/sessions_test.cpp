#include "accounts/sessions.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>

#include "accounts/ownership.h"
#include "accounts/secrets.h"
#include "support/sysroot.h"

namespace {

using accounts::BeginSession;
using accounts::UseSession;

constexpr int64_t kNow = 1700000000;
constexpr char kFolder[] = "/run/mirevo/sessions";
constexpr char kPassword[] = "right password";

class Sessions : public test::Sysroot {
 protected:
  void SetUp() override {
    Sysroot::SetUp();
    ASSERT_EQ(accounts::Create("anna", kPassword, true, {}), accounts::Outcome::kDone);
  }

  static std::string Begin(int64_t now = kNow) {
    return BeginSession(*accounts::Find("anna"), now);
  }

  struct stat StatusOf(const std::string& path) const {
    struct stat status {};
    EXPECT_EQ(lstat(Path(path).c_str(), &status), 0) << path;
    return status;
  }

  std::vector<std::string> Files() const {
    std::vector<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(Path(kFolder))) {
      names.push_back(entry.path().filename());
    }
    return names;
  }
};

TEST_F(Sessions, AnIdIdentifiesItsAccount) {
  const std::string id = Begin();
  EXPECT_TRUE(accounts::IsSecret(id));
  ASSERT_TRUE(UseSession(id, kNow));
  EXPECT_EQ(UseSession(id, kNow)->name, "anna");
  EXPECT_NE(Begin(), id);
}

TEST_F(Sessions, TheIdItselfIsNotStored) {
  const std::string id = Begin();
  ASSERT_EQ(Files().size(), 1U);
  EXPECT_EQ(Files()[0], accounts::DigestOf(id));
  const std::string file = std::string(kFolder) + "/" + Files()[0];
  EXPECT_EQ(Read(file).find(id), std::string::npos);
  EXPECT_EQ(StatusOf(kFolder).st_mode & 07777, 0700U);
  EXPECT_EQ(StatusOf(file).st_mode & 07777, 0600U);
}

TEST_F(Sessions, WhatRootMakesBelongsToTheFoldersOwner) {
  if (geteuid() != 0) {
    GTEST_SKIP() << "only root may give files away";
  }
  constexpr uid_t kService = 1234;
  MakeDirectory("/run/mirevo");
  ASSERT_EQ(chown(Path("/run/mirevo").c_str(), kService, kService), 0);
  Begin();
  EXPECT_EQ(StatusOf(kFolder).st_uid, kService);
  EXPECT_EQ(StatusOf(std::string(kFolder) + "/" + Files().at(0)).st_uid, kService);
}

TEST_F(Sessions, ALinkIsGivenAwayAndNotWhatItLeadsTo) {
  if (geteuid() != 0) {
    GTEST_SKIP() << "only root may give files away";
  }
  constexpr uid_t kService = 1234;
  MakeDirectory("/service");
  ASSERT_EQ(chown(Path("/service").c_str(), kService, kService), 0);
  Write("/secret", "");
  ASSERT_EQ(symlink(Path("/secret").c_str(), Path("/service/link").c_str()), 0);
  accounts::LeaveToFolderOwner(Path("/service/link"));
  EXPECT_EQ(StatusOf("/service/link").st_uid, kService);
  EXPECT_EQ(StatusOf("/secret").st_uid, 0U);
}

TEST_F(Sessions, UseExtendsASessionUntilItIsTooOld) {
  const std::string id = Begin();
  int64_t now = kNow;
  while (now - kNow + accounts::kSessionIdleSeconds <= accounts::kSessionSeconds) {
    now += accounts::kSessionIdleSeconds;
    ASSERT_TRUE(UseSession(id, now));
  }
  EXPECT_FALSE(UseSession(id, kNow + accounts::kSessionSeconds + 1));
}

TEST_F(Sessions, AnUnusedOneEnds) {
  const std::string id = Begin();
  EXPECT_FALSE(UseSession(id, kNow + accounts::kSessionIdleSeconds + 1));
  EXPECT_TRUE(Files().empty());
  EXPECT_FALSE(UseSession(id, kNow));
}

TEST_F(Sessions, LoggingOutEndsOnlyThatSession) {
  const std::string one = Begin();
  const std::string other = Begin();
  accounts::EndSession(one);
  EXPECT_FALSE(UseSession(one, kNow));
  EXPECT_TRUE(UseSession(other, kNow));
}

TEST_F(Sessions, ANewPasswordEndsAllSessions) {
  const std::string id = Begin();
  accounts::SetPassword("anna", "another password");
  EXPECT_FALSE(UseSession(id, kNow));
}

TEST_F(Sessions, AnAccountOfTheSameNameDoesNotInheritThem) {
  const std::string id = Begin();
  accounts::Remove("anna");
  accounts::Create("anna", kPassword, true, {});
  EXPECT_FALSE(UseSession(id, kNow));
}

TEST_F(Sessions, AnAccountHasALimitedNumber) {
  const std::string oldest = Begin(kNow - 1);
  for (int i = 0; i < accounts::kSessionsPerAccount; ++i) {
    ASSERT_FALSE(Begin().empty());
  }
  EXPECT_EQ(Files().size(), static_cast<size_t>(accounts::kSessionsPerAccount));
  EXPECT_FALSE(UseSession(oldest, kNow));
}

TEST_F(Sessions, OfOtherAccountsDoNotCountAndStay) {
  accounts::Create("bob", kPassword, false, {});
  const std::string bobs = BeginSession(*accounts::Find("bob"), kNow - 1);
  for (int i = 0; i < accounts::kSessionsPerAccount; ++i) {
    ASSERT_FALSE(Begin().empty());
  }
  EXPECT_TRUE(UseSession(bobs, kNow));
}

TEST_F(Sessions, ALoginRemovesEndedSessions) {
  Begin();
  Write(std::string(kFolder) + "/damaged", "");
  Begin(kNow + accounts::kSessionIdleSeconds + 1);
  EXPECT_EQ(Files().size(), 1U);
}

TEST_F(Sessions, AnotherLoginsUnfinishedFileStays) {
  Begin();
  const std::string unfinished = std::string(kFolder) + "/" + Files()[0] + ".abc123";
  Write(unfinished, "");
  Begin();
  EXPECT_TRUE(Exists(unfinished));
}

TEST_F(Sessions, InvalidIdsTouchNothing) {
  Write("/run/mirevo/marker", "here");
  Begin();
  for (const std::string& id :
       {std::string(), std::string("../marker"), std::string(43, '/'), std::string(44, 'a'),
        std::string(43, 'a'), Files()[0], std::string(42, 'a') + "\n", std::string(43, '\0')}) {
    EXPECT_FALSE(UseSession(id, kNow));
    accounts::EndSession(id);
  }
  EXPECT_EQ(Read("/run/mirevo/marker"), "here");
  EXPECT_EQ(Files().size(), 1U);
}

TEST_F(Sessions, ADamagedFileGivesNoSession) {
  const std::string id = Begin();
  const std::string path = std::string(kFolder) + "/" + Files()[0];
  for (const std::string damage :
       {"", "[]", R"({"account": "anna"})", R"({"account": 1, "era": 2, "begun": "x"})"}) {
    Write(path, damage);
    EXPECT_FALSE(UseSession(id, kNow)) << damage;
  }
}

TEST(Secrets, HaveOneFormAndNeverRepeat) {
  const std::string one = accounts::NewSecret();
  EXPECT_TRUE(accounts::IsSecret(one));
  EXPECT_NE(one, accounts::NewSecret());
  EXPECT_TRUE(accounts::SameSecret(one, one));
  EXPECT_FALSE(accounts::SameSecret(one, one.substr(1)));
  EXPECT_FALSE(accounts::SameSecret(one, accounts::NewSecret()));
}

TEST(Secrets, HaveNothingThatAnAddressOrAPathWouldRead) {
  EXPECT_TRUE(accounts::IsSecret(std::string(41, 'a') + "-_"));
  for (const char c : {'/', '+', '=', '.', '%', '\n', '\0', '\xe4'}) {
    EXPECT_FALSE(accounts::IsSecret(std::string(42, 'a') + c)) << static_cast<int>(c);
  }
  for (int i = 0; i < 64; ++i) {
    EXPECT_TRUE(accounts::IsSecret(accounts::NewSecret()));
  }
}

TEST(Secrets, ADigestIsSha256) {
  EXPECT_EQ(accounts::DigestOf("abc"),
            "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad");
}

// Root may read every file, so a link to itself stands for a file that cannot be opened.
TEST_F(Sessions, OutliveAFailureToReadTheAccounts) {
  const std::string id = Begin();
  const std::string file = Path("/var/packages/Mirevo/etc/accounts");
  std::filesystem::rename(file, file + ".away");
  std::filesystem::create_symlink(file, file);
  EXPECT_FALSE(UseSession(id, kNow));
  std::filesystem::rename(file + ".away", file);
  EXPECT_TRUE(UseSession(id, kNow));
}

TEST_F(Sessions, ThatCannotBeReadWhenAnotherBeginsStay) {
  const std::string id = Begin();
  const std::string file = Path(std::string(kFolder) + "/" + accounts::DigestOf(id));
  const std::string away = Path("/away");
  std::filesystem::rename(file, away);
  std::filesystem::create_symlink(file, file);
  Begin();
  EXPECT_TRUE(std::filesystem::is_symlink(file));
  std::filesystem::remove(file);
  std::filesystem::rename(away, file);
  EXPECT_TRUE(UseSession(id, kNow));
}
}  // namespace
