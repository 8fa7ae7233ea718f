#include "accounts/known_clients.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

#include "support/sysroot.h"

namespace {

using accounts::IsKnownClient;
using accounts::RememberClient;

class KnownClients : public test::Sysroot {};

TEST_F(KnownClients, AreThoseThatLoggedInToThisAccount) {
  EXPECT_FALSE(IsKnownClient("anna", "192.0.2.1"));
  RememberClient("anna", "192.0.2.1");
  EXPECT_TRUE(IsKnownClient("anna", "192.0.2.1"));
  EXPECT_FALSE(IsKnownClient("anna", "192.0.2.2"));
  EXPECT_FALSE(IsKnownClient("bob", "192.0.2.1"));
}

TEST_F(KnownClients, AreForgottenInTheOrderOfTheirLastLogins) {
  for (int i = 0; i < accounts::kKnownClients; ++i) {
    RememberClient("anna", std::to_string(i));
  }
  RememberClient("anna", "0");
  RememberClient("anna", "one more");
  EXPECT_TRUE(IsKnownClient("anna", "0"));
  EXPECT_FALSE(IsKnownClient("anna", "1"));
  EXPECT_TRUE(IsKnownClient("anna", "2"));
  EXPECT_TRUE(IsKnownClient("anna", "one more"));
}

TEST_F(KnownClients, AreStoredWithoutTheirAddresses) {
  RememberClient("anna", "192.0.2.1");
  for (const auto& entry : std::filesystem::directory_iterator(Path("/run/mirevo/known"))) {
    std::ifstream file(entry.path());
    const std::string content{std::istreambuf_iterator<char>(file), {}};
    EXPECT_EQ(content.find("192.0.2.1"), std::string::npos) << entry.path();
    EXPECT_EQ(entry.path().string().find("anna"), std::string::npos) << entry.path();
  }
}

// Root may read every file, so a link to itself stands for a file that cannot be opened.
TEST_F(KnownClients, AreNotForgottenWhenTheyCannotBeRead) {
  RememberClient("anna", "192.0.2.1");
  std::string file;
  for (const auto& entry : std::filesystem::directory_iterator(Path("/run/mirevo/known"))) {
    file = entry.path().filename() == ".locks" ? file : entry.path().string();
  }
  std::filesystem::rename(file, file + ".away");
  std::filesystem::create_symlink(file, file);
  RememberClient("anna", "192.0.2.2");
  EXPECT_FALSE(IsKnownClient("anna", "192.0.2.1"));
  std::filesystem::rename(file + ".away", file);
  EXPECT_TRUE(IsKnownClient("anna", "192.0.2.1"));
}
}  // namespace
