#include "accounts/secrets.h"

#include <sys/random.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <cerrno>

#include "accounts/sodium.h"
#include "util/base64_url.h"

namespace accounts {
namespace {

constexpr size_t kSecretBytes = 32;
constexpr size_t kSecretLength = 43;

// A hash that matches no password; a comparison with it takes as long as with any other.
constexpr char kNobody[] =
    "$argon2id$v=19$m=65536,t=2,p=1$AAAAAAAAAAAAAAAAAAAAAA$"
    "AAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAA";

std::string Hexadecimal(const unsigned char* bytes, size_t count) {
  constexpr char kDigits[] = "0123456789abcdef";
  std::string text;
  for (size_t i = 0; i < count; ++i) {
    text += kDigits[bytes[i] >> 4];
    text += kDigits[bytes[i] & 0xf];
  }
  return text;
}

}  // namespace

std::string NewSecret() {
  std::array<char, kSecretBytes> bytes{};
  ssize_t count = -1;
  do {
    count = getrandom(bytes.data(), bytes.size(), 0);
  } while (count < 0 && errno == EINTR);
  return count == static_cast<ssize_t>(bytes.size()) ? orvo::Base64Url({bytes.data(), bytes.size()})
                                                     : "";
}

bool IsSecret(const std::string& text) {
  return text.size() == kSecretLength && std::all_of(text.begin(), text.end(), [](unsigned char c) {
           return (c < 128 && std::isalnum(c) != 0) || c == '-' || c == '_';
         });
}

std::string DigestOf(const std::string& secret) {
  const Sodium& sodium = Sodium::Get();
  std::array<unsigned char, crypto_hash_sha256_BYTES> digest{};
  const auto* const bytes = reinterpret_cast<const unsigned char*>(secret.data());
  const bool done = sodium.IsLoaded() && sodium.sha256(digest.data(), bytes, secret.size()) == 0;
  return done ? Hexadecimal(digest.data(), digest.size()) : "";
}

bool SameSecret(const std::string& one, const std::string& other) {
  if (one.size() != other.size()) {
    return false;
  }
  unsigned char difference = 0;
  for (size_t i = 0; i < one.size(); ++i) {
    difference = static_cast<unsigned char>(difference | (one[i] ^ other[i]));
  }
  return difference == 0;
}

std::string HashPassword(const std::string& password) {
  const Sodium& sodium = Sodium::Get();
  std::array<char, crypto_pwhash_STRBYTES> hash{};
  const bool done =
      sodium.IsReady() && sodium.hashPassword(hash.data(), password.data(), password.size(),
                                              crypto_pwhash_OPSLIMIT_INTERACTIVE,
                                              crypto_pwhash_MEMLIMIT_INTERACTIVE) == 0;
  return done ? hash.data() : "";
}

bool MatchesPassword(const std::string& hash, const std::string& password) {
  const Sodium& sodium = Sodium::Get();
  // The library reads a buffer of this length, so a shorter hash from the file is padded.
  std::array<char, crypto_pwhash_STRBYTES> known{};
  const std::string text = hash.empty() || hash.size() >= known.size() ? kNobody : hash;
  std::copy(text.begin(), text.end(), known.begin());
  return sodium.IsReady() &&
         sodium.verifyPassword(known.data(), password.data(), password.size()) == 0 && text == hash;
}

}  // namespace accounts
