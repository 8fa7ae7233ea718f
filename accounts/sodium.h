// libsodium, which only the requests that need it load. Requests of a running stream do not.
#pragma once

#include <sodium/core.h>
#include <sodium/crypto_generichash.h>
#include <sodium/crypto_hash_sha256.h>
#include <sodium/crypto_pwhash.h>
#include <sodium/crypto_secretbox.h>

#include "util/lazy_library.h"

namespace accounts {

class Sodium {
 public:
  // Loads the library at the first call.
  static const Sodium& Get();

  // Without the library, which is in the log then, nothing below may be called.
  bool IsLoaded() const { return loaded_; }
  // Only passwords need the library's initialisation; a digest does not wait for it.
  bool IsReady() const { return loaded_ && init_() >= 0; }

  decltype(&crypto_hash_sha256) sha256 = nullptr;
  decltype(&crypto_pwhash_str) hashPassword = nullptr;
  decltype(&crypto_pwhash_str_verify) verifyPassword = nullptr;
  decltype(&crypto_secretbox_easy) closeBox = nullptr;
  decltype(&crypto_secretbox_open_easy) openBox = nullptr;
  decltype(&crypto_generichash) hash = nullptr;

 private:
  Sodium();

  orvo::LazyLibrary library_;
  decltype(&sodium_init) init_ = nullptr;
  bool loaded_ = false;
};

}  // namespace accounts
