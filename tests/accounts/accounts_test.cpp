#include "accounts/accounts.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <vector>

#include "accounts/first_word.h"
#include "support/sysroot.h"

namespace {

using accounts::Outcome;

constexpr char kFile[] = "/var/packages/Mirevo/etc/accounts";
constexpr char kPassword[] = "right password";

class Accounts : public test::Sysroot {
 protected:
  mode_t ModeOf(const std::string& path) const {
    struct stat status {};
    EXPECT_EQ(stat(Path(path).c_str(), &status), 0);
    return status.st_mode & 07777;
  }

  std::string Folder(const std::string& path) const {
    MakeDirectory(path);
    return Path(path);
  }
};

TEST_F(Accounts, WithoutAccountsNobodyNeedsToLogIn) {
  EXPECT_FALSE(accounts::AreNeeded());
  EXPECT_TRUE(accounts::List()->empty());
  ASSERT_EQ(accounts::Create("anna", kPassword, false, {}), Outcome::kDone);
  EXPECT_TRUE(accounts::AreNeeded());
  ASSERT_EQ(accounts::Remove("anna"), Outcome::kDone);
  EXPECT_FALSE(accounts::AreNeeded());
}

TEST_F(Accounts, TheFirstIsAnOwnerAndLaterOnesOnlyOnRequest) {
  accounts::Create("anna", kPassword, false, {});
  accounts::Create("bob", kPassword, false, {});
  accounts::Create("carl", kPassword, true, {});
  EXPECT_TRUE(accounts::Find("anna")->owner);
  EXPECT_FALSE(accounts::Find("bob")->owner);
  EXPECT_TRUE(accounts::Find("carl")->owner);
}

TEST_F(Accounts, OnlyOneOfSeveralIsCreatedAsTheFirst) {
  ASSERT_EQ(accounts::CreateFirst("anna", kPassword), Outcome::kDone);
  EXPECT_EQ(accounts::CreateFirst("bob", kPassword), Outcome::kNotFirst);
  EXPECT_TRUE(accounts::Find("anna")->owner);
  EXPECT_FALSE(accounts::Find("bob"));
}

TEST_F(Accounts, TheLastOwnerStaysIfItMust) {
  accounts::Create("anna", kPassword, true, {});
  accounts::Create("bob", kPassword, false, {});
  EXPECT_EQ(accounts::RemoveUnlessLastOwner("anna"), Outcome::kLastOwner);
  EXPECT_TRUE(accounts::Find("anna"));
  EXPECT_EQ(accounts::RemoveUnlessLastOwner("carl"), Outcome::kUnknown);
  EXPECT_EQ(accounts::RemoveUnlessLastOwner("bob"), Outcome::kDone);
  accounts::Create("dora", kPassword, true, {});
  EXPECT_EQ(accounts::RemoveUnlessLastOwner("anna"), Outcome::kDone);
}

TEST_F(Accounts, AFolderWhoseNameIsNoTextIsNotGranted) {
  accounts::Create("anna", kPassword, true, {});
  EXPECT_EQ(accounts::GrantRoots("anna", {Folder("/films \xff")}), Outcome::kBadRoot);
}

TEST_F(Accounts, AFirstWordIsKnownUntilItIsRemoved) {
  MakeDirectory("/var/packages/Mirevo/etc");
  EXPECT_FALSE(accounts::HasFirstWord());
  EXPECT_FALSE(accounts::IsFirstWord(""));
  const std::string word = accounts::MakeFirstWord();
  ASSERT_EQ(word.size(), 16U);
  EXPECT_EQ(ModeOf(accounts::kFirstWordFile), 0600U);
  EXPECT_TRUE(accounts::IsFirstWord(word));
  EXPECT_FALSE(accounts::IsFirstWord(word.substr(1)));
  EXPECT_FALSE(accounts::IsFirstWord(word + "x"));
  EXPECT_NE(accounts::MakeFirstWord(), word);
  EXPECT_FALSE(accounts::IsFirstWord(word));
  accounts::RemoveFirstWord();
  EXPECT_FALSE(accounts::HasFirstWord());
  EXPECT_FALSE(accounts::IsFirstWord(""));
}

TEST_F(Accounts, OnlyTheRightPasswordVerifiesAnAccount) {
  accounts::Create("anna", kPassword, false, {});
  accounts::Create("bob", "another password", false, {});
  ASSERT_TRUE(accounts::Verify("anna", kPassword));
  EXPECT_EQ(accounts::Verify("anna", kPassword)->name, "anna");
  EXPECT_FALSE(accounts::Verify("bob", kPassword));
  EXPECT_FALSE(accounts::Verify("anna", ""));
  EXPECT_FALSE(accounts::Verify("Anna", kPassword));
  EXPECT_FALSE(accounts::Verify("nobody", kPassword));
}

TEST_F(Accounts, OnlyTheOwnerReadsTheFileAndItHoldsNoPassword) {
  accounts::Create("anna", kPassword, false, {});
  EXPECT_EQ(ModeOf(kFile), 0600U);
  EXPECT_EQ(Read(kFile).find(kPassword), std::string::npos);
  EXPECT_EQ(ReadJson(kFile)["anna"]["password"].asString().rfind("$argon2id$", 0), 0U);
}

TEST_F(Accounts, AFileMadeByRootBelongsToTheFoldersOwner) {
  if (geteuid() != 0) {
    GTEST_SKIP() << "only root may give files away";
  }
  constexpr uid_t kService = 1234;
  MakeDirectory("/var/packages/Mirevo/etc");
  ASSERT_EQ(chown(Path("/var/packages/Mirevo/etc").c_str(), kService, kService), 0);
  accounts::Create("anna", kPassword, false, {});
  struct stat status {};
  ASSERT_EQ(stat(Path(kFile).c_str(), &status), 0);
  EXPECT_EQ(status.st_uid, kService);
}

TEST_F(Accounts, EqualPasswordsHaveDifferentHashes) {
  accounts::Create("anna", kPassword, false, {});
  accounts::Create("bob", kPassword, false, {});
  const Json::Value content = ReadJson(kFile);
  EXPECT_NE(content["anna"]["password"], content["bob"]["password"]);
}

TEST_F(Accounts, InvalidNamesAndPasswordsAreRefused) {
  for (const std::string name :
       {"", "a b", "../a", "a/b", ".a", "-a", "a\n", "\xc3\xa4", "a\"", "a;b"}) {
    EXPECT_EQ(accounts::Create(name, kPassword, false, {}), Outcome::kBadName) << name;
  }
  EXPECT_EQ(accounts::Create(std::string(65, 'a'), kPassword, false, {}), Outcome::kBadName);
  EXPECT_EQ(accounts::Create("anna", "1234567", false, {}), Outcome::kBadPassword);
  EXPECT_EQ(accounts::Create("anna", std::string(1025, 'a'), false, {}), Outcome::kBadPassword);
  EXPECT_EQ(accounts::Create("anna", kPassword, false, {"films"}), Outcome::kBadRoot);
  EXPECT_EQ(accounts::Create("anna", kPassword, false, {"/no such folder"}), Outcome::kBadRoot);
  EXPECT_FALSE(Exists(kFile));
}

TEST_F(Accounts, NamesAndPasswordsMayBeAsLongAsIsSaid) {
  EXPECT_EQ(accounts::Create(std::string(64, 'a'), "12345678", false, {}), Outcome::kDone);
  EXPECT_EQ(accounts::Create("a.B-c_9@d", std::string(1024, 'a'), false, {}), Outcome::kDone);
  EXPECT_TRUE(accounts::Verify("a.B-c_9@d", std::string(1024, 'a')));
}

TEST_F(Accounts, ARefusedChangeLeavesTheAccountAsItWas) {
  const std::string films = Folder("/films");
  accounts::Create("anna", kPassword, false, {films});
  const std::string before = Read(kFile);
  EXPECT_EQ(accounts::SetPassword("anna", "1234567"), Outcome::kBadPassword);
  EXPECT_EQ(accounts::SetPassword("anna", std::string(1025, 'a')), Outcome::kBadPassword);
  EXPECT_EQ(accounts::GrantRoots("anna", {films, "/no such folder"}), Outcome::kBadRoot);
  EXPECT_EQ(accounts::GrantRoots("anna", {"."}), Outcome::kBadRoot);
  EXPECT_EQ(accounts::GrantRoots("anna", {""}), Outcome::kBadRoot);
  EXPECT_EQ(Read(kFile), before);
}

TEST_F(Accounts, NothingIsChangedWithoutTheLock) {
  MakeDirectory(std::string(kFile) + ".lock");
  EXPECT_EQ(accounts::Create("anna", kPassword, false, {}), Outcome::kFailed);
  EXPECT_FALSE(Exists(kFile));
}

TEST_F(Accounts, ANameIsTakenOnce) {
  accounts::Create("anna", kPassword, false, {});
  EXPECT_EQ(accounts::Create("anna", "another password", true, {}), Outcome::kExists);
  EXPECT_TRUE(accounts::Verify("anna", kPassword));
}

TEST_F(Accounts, ANewPasswordBeginsANewEra) {
  accounts::Create("anna", kPassword, false, {});
  const std::string before = accounts::Find("anna")->era;
  ASSERT_EQ(accounts::SetPassword("anna", "another password"), Outcome::kDone);
  EXPECT_NE(accounts::Find("anna")->era, before);
  EXPECT_FALSE(accounts::Verify("anna", kPassword));
  EXPECT_TRUE(accounts::Verify("anna", "another password"));
}

TEST_F(Accounts, RootsAreStoredWithLinksResolved) {
  const std::string films = Folder("/films");
  ASSERT_EQ(symlink(films.c_str(), Path("/link").c_str()), 0);
  accounts::Create("anna", kPassword, false, {});
  ASSERT_EQ(accounts::GrantRoots("anna", {Path("/link")}), Outcome::kDone);
  EXPECT_EQ(accounts::Find("anna")->roots, std::vector<std::string>{films});
  ASSERT_EQ(accounts::GrantRoots("anna", {}), Outcome::kDone);
  EXPECT_TRUE(accounts::Find("anna")->roots.empty());
}

TEST_F(Accounts, AnUnknownAccountCannotBeChanged) {
  EXPECT_EQ(accounts::Remove("anna"), Outcome::kUnknown);
  EXPECT_EQ(accounts::SetPassword("anna", kPassword), Outcome::kUnknown);
  EXPECT_EQ(accounts::GrantRoots("anna", {}), Outcome::kUnknown);
}

TEST_F(Accounts, ADamagedFileLetsNobodyInAndStaysUnchanged) {
  for (const std::string damage :
       {"", "{", "[]", "7", R"({"anna": 1})", R"({"anna": {"password": "x"}})",
        R"({"anna": {"password": 1, "era": "", "owner": true, "roots": []}})",
        R"({"anna": {"password": "x", "era": 1, "owner": true, "roots": []}})",
        R"({"anna": {"password": "x", "era": "", "owner": 1, "roots": []}})",
        R"({"anna": {"password": "x", "era": "", "owner": true, "roots": {}}})",
        R"({"anna": {"password": "x", "era": "", "owner": true, "roots": [1]}})"}) {
    Write(kFile, damage);
    EXPECT_TRUE(accounts::AreNeeded()) << damage;
    EXPECT_FALSE(accounts::List()) << damage;
    EXPECT_FALSE(accounts::Find("anna")) << damage;
    EXPECT_EQ(accounts::GrantRoots("anna", {}), Outcome::kDamaged) << damage;
    EXPECT_EQ(Read(kFile), damage);
  }
  EXPECT_FALSE(accounts::Verify("anna", kPassword));
  EXPECT_EQ(accounts::Create("anna", kPassword, true, {}), Outcome::kDamaged);
}

TEST_F(Accounts, AnInvalidHashMatchesNoPassword) {
  for (const std::string& hash : {std::string(), std::string("x"), std::string(5000, '$')}) {
    Json::Value content;
    content["anna"]["password"] = hash;
    content["anna"]["era"] = "e";
    content["anna"]["owner"] = true;
    content["anna"]["roots"] = Json::Value(Json::arrayValue);
    WriteJson(kFile, content);
    ASSERT_TRUE(accounts::Find("anna"));
    EXPECT_FALSE(accounts::Verify("anna", kPassword));
  }
}

TEST_F(Accounts, MissingFromTheSharedStateLetNobodyIn) {
  const std::string shared = Folder("/var/packages/Mirevo/etc/shared");
  EXPECT_TRUE(accounts::AreNeeded());
  EXPECT_FALSE(accounts::List());
  ASSERT_EQ(accounts::Create("anna", kPassword, false, {}), Outcome::kDone);
  EXPECT_TRUE(accounts::Verify("anna", kPassword));
  std::filesystem::rename(shared, shared + ".away");
  std::filesystem::create_symlink("/nowhere", shared);
  EXPECT_TRUE(accounts::AreNeeded());
  EXPECT_FALSE(accounts::Find("anna"));
  EXPECT_EQ(accounts::Create("eve", kPassword, false, {}), Outcome::kFailed);
}

TEST_F(Accounts, SimultaneousChangesAreAllKept) {
  constexpr int kProcesses = 4;
  std::vector<pid_t> children;
  for (int i = 0; i < kProcesses; ++i) {
    children.push_back(fork());
    if (children.back() == 0) {
      const Outcome outcome = accounts::Create("a" + std::to_string(i), kPassword, false, {});
      _exit(outcome == Outcome::kDone ? 0 : 1);
    }
  }
  for (const pid_t child : children) {
    int status = -1;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0);
  }
  EXPECT_EQ(accounts::List()->size(), static_cast<size_t>(kProcesses));
}

}  // namespace
