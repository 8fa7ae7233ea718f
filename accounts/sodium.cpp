#include "accounts/sodium.h"

#include "platform/log.h"

namespace accounts {
namespace {

constexpr char kSoname[] = "libsodium.so.23";

}  // namespace

const Sodium& Sodium::Get() {
  static const Sodium sodium;
  return sodium;
}

Sodium::Sodium() : library_(kSoname) {
  loaded_ = library_.Find("sodium_init", init_) && library_.Find("crypto_hash_sha256", sha256) &&
            library_.Find("crypto_pwhash_str", hashPassword) &&
            library_.Find("crypto_pwhash_str_verify", verifyPassword) &&
            library_.Find("crypto_secretbox_easy", closeBox) &&
            library_.Find("crypto_secretbox_open_easy", openBox) &&
            library_.Find("crypto_generichash", hash);
  if (!loaded_) {
    ORVO_LOG("Failed to load %s", kSoname);
  }
}

}  // namespace accounts
