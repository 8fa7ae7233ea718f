// What boxes of a cluster seal for each other.
#include "webapi/cluster/seal.h"

#include <gtest/gtest.h>

#include "accounts/secrets.h"
#include "util/base64_url.h"

namespace {

using webapi::ClusterKey;
using webapi::DeriveSecret;
using webapi::Seal;
using webapi::Unseal;

constexpr ClusterKey kKey{1, 2, 3};
constexpr ClusterKey kOtherKey{1, 2, 4};
constexpr char kName[] = "0123456789abcdef0123456789abcdef_aB3dE6gH";
constexpr char kContent[] = "/films/Anna.mkv of anna";

TEST(Sealing, OpensWithTheSameKeyAndName) {
  EXPECT_EQ(Unseal(kKey, kName, Seal(kKey, kName, kContent)), kContent);
  EXPECT_EQ(Unseal(kKey, kName, Seal(kKey, kName, "")), "");
}

TEST(Sealing, ShowsNothingOfTheContent) {
  const auto bytes = orvo::FromBase64Url(Seal(kKey, kName, kContent));
  ASSERT_TRUE(bytes);
  EXPECT_EQ(bytes->find("anna"), std::string::npos);
  EXPECT_EQ(bytes->find("films"), std::string::npos);
}

TEST(Sealing, AddsTwentyFourBytes) {
  EXPECT_EQ(orvo::FromBase64Url(Seal(kKey, kName, kContent))->size(), sizeof(kContent) - 1 + 24);
}

TEST(Sealing, GivesOtherContentsOtherNonces) {
  const std::string one = Seal(kKey, kName, "content 1");
  const std::string other = Seal(kKey, kName, "content 2");
  EXPECT_NE(one.substr(0, 10), other.substr(0, 10));
  EXPECT_EQ(one, Seal(kKey, kName, "content 1"));
}

TEST(Sealing, DoesNotOpenForAnotherKeyOrName) {
  const std::string text = Seal(kKey, kName, kContent);
  EXPECT_FALSE(Unseal(kOtherKey, kName, text));
  EXPECT_FALSE(Unseal(kKey, "another stream", text));
}

TEST(Sealing, NoticesEachAlteredCharacter) {
  const std::string text = Seal(kKey, kName, kContent);
  for (size_t at = 0; at < text.size(); ++at) {
    for (const char character : orvo::kBase64UrlAlphabet) {
      std::string altered = text;
      altered[at] = character;
      EXPECT_EQ(Unseal(kKey, kName, altered).has_value(), altered == text) << altered;
    }
  }
}

TEST(Sealing, NoticesMissingAndAddedCharacters) {
  const std::string text = Seal(kKey, kName, kContent);
  for (size_t length = 0; length < text.size(); ++length) {
    EXPECT_FALSE(Unseal(kKey, kName, text.substr(0, length)));
  }
  EXPECT_FALSE(Unseal(kKey, kName, text + "A"));
  EXPECT_FALSE(Unseal(kKey, kName, text + "="));
}

TEST(DerivedSecrets, HaveTheFormOfSecretsAndFollowFromKeyAndText) {
  const std::string secret = DeriveSecret(kKey, "stream\nanna\nera");
  EXPECT_TRUE(accounts::IsSecret(secret));
  EXPECT_EQ(secret, DeriveSecret(kKey, "stream\nanna\nera"));
  EXPECT_NE(secret, DeriveSecret(kKey, "stream\nanna\nnew era"));
  EXPECT_NE(secret, DeriveSecret(kOtherKey, "stream\nanna\nera"));
}

}  // namespace
