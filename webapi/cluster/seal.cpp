#include "webapi/cluster/seal.h"

#include <string_view>

#include "accounts/sodium.h"
#include "util/base64_url.h"

namespace webapi {
namespace {

using accounts::Sodium;

// Addresses carry this part of the nonce. The rest follows from it and from the name, so only
// tickets of one stream could ever share a nonce, and this many bits keep them apart.
constexpr size_t kSaltBytes = 8;

// What a keyed hash is for. Two purposes never give the same bytes.
constexpr std::string_view kForSalt = "salt";
constexpr std::string_view kForNonce = "nonce";
constexpr std::string_view kForSecret = "secret";

const unsigned char* Bytes(std::string_view text) {
  return reinterpret_cast<const unsigned char*>(text.data());
}

unsigned char* Bytes(std::string& text) {
  return reinterpret_cast<unsigned char*>(text.data());
}

// `size` bytes that only holders of the key can compute from the texts.
std::string Hash(const ClusterKey& key, std::string_view purpose, std::string_view name,
                 std::string_view rest, size_t size) {
  std::string input;
  for (const std::string_view part : {purpose, name, rest}) {
    input.append(std::to_string(part.size())).append(":").append(part);
  }
  std::string hash(size, '\0');
  Sodium::Get().hash(Bytes(hash), size, Bytes(std::string_view(input)), input.size(), key.data(),
                     key.size());
  return hash;
}

std::string NonceOf(const ClusterKey& key, const std::string& name, std::string_view salt) {
  return Hash(key, kForNonce, name, salt, crypto_secretbox_NONCEBYTES);
}

}  // namespace

std::string Seal(const ClusterKey& key, const std::string& name, const std::string& content) {
  const Sodium& sodium = Sodium::Get();
  if (!sodium.IsLoaded()) {
    return "";
  }
  // The salt follows from the content, so no other content is sealed with the same nonce.
  const std::string salt = Hash(key, kForSalt, name, content, kSaltBytes);
  const std::string nonce = NonceOf(key, name, salt);
  std::string box(content.size() + crypto_secretbox_MACBYTES, '\0');
  sodium.closeBox(Bytes(box), Bytes(std::string_view(content)), content.size(),
                  Bytes(std::string_view(nonce)), key.data());
  return orvo::Base64Url(salt + box);
}

std::optional<std::string> Unseal(const ClusterKey& key, const std::string& name,
                                  const std::string& text) {
  const Sodium& sodium = Sodium::Get();
  const auto bytes = orvo::FromBase64Url(text);
  if (!sodium.IsLoaded() || !bytes || bytes->size() < kSaltBytes + crypto_secretbox_MACBYTES) {
    return std::nullopt;
  }
  const std::string_view box = std::string_view(*bytes).substr(kSaltBytes);
  const std::string nonce = NonceOf(key, name, std::string_view(*bytes).substr(0, kSaltBytes));
  std::string content(box.size() - crypto_secretbox_MACBYTES, '\0');
  const bool isGood = sodium.openBox(Bytes(content), Bytes(box), box.size(),
                                     Bytes(std::string_view(nonce)), key.data()) == 0;
  return isGood ? std::optional(std::move(content)) : std::nullopt;
}

std::string DeriveSecret(const ClusterKey& key, const std::string& text) {
  constexpr size_t kSecretBytes = 32;
  return Sodium::Get().IsLoaded() ? orvo::Base64Url(Hash(key, kForSecret, "", text, kSecretBytes))
                                  : "";
}

}  // namespace webapi
