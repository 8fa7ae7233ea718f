// The deprecated function needs only the time for the digest. Its replacement makes the library
// read its configuration and choose a provider first, which takes a millisecond.
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"

#include "util/md5.h"

#include <openssl/md5.h>
#include <openssl/opensslv.h>

#include <array>
#include <cstdint>
#include <fstream>

#include "platform/io.h"
#include "platform/log.h"
#include "util/lazy_library.h"

#define ORVO_TEXT_OF(macro) #macro
#define ORVO_EXPANDED_TEXT_OF(macro) ORVO_TEXT_OF(macro)
#define ORVO_CRYPTO_SOVERSION ORVO_EXPANDED_TEXT_OF(OPENSSL_SHLIB_VERSION)

namespace LibMirevo {
namespace {

// Only opening a stream needs a digest. This library takes longer to load than all others together.
class Crypto {
 public:
  static const Crypto& Get() {
    static const Crypto crypto;
    return crypto;
  }

  // False on failure.
  bool Md5(const std::string& text, unsigned char* digest) const {
    const auto* const bytes = reinterpret_cast<const unsigned char*>(text.data());
    return md5_ != nullptr && md5_(bytes, text.size(), digest) != nullptr;
  }

 private:
  Crypto() : library_("libcrypto.so." ORVO_CRYPTO_SOVERSION) {
    if (!library_.Find("MD5", md5_)) {
      ORVO_LOG("Failed to load libcrypto");
    }
  }

  orvo::LazyLibrary library_;
  decltype(&::MD5) md5_ = nullptr;
};

}  // namespace

std::string GetMD5(const std::string& text) {
  std::array<unsigned char, MD5_DIGEST_LENGTH> digest{};
  if (!Crypto::Get().Md5(text, digest.data())) {
    return "";
  }
  constexpr char kDigits[] = "0123456789abcdef";
  std::string hex;
  for (const unsigned char byte : digest) {
    hex += kDigits[byte >> 4];
    hex += kDigits[byte & 0xf];
  }
  return hex;
}

std::string GetFileMD5(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  if (!file.is_open()) {
    ORVO_LOG("failed to open file");
    return "";
  }
  std::string content;
  if (!orvo::ReadAll(file, content, SIZE_MAX)) {
    ORVO_LOG("failed to read content");
    return "";
  }
  return GetMD5(content);
}

}  // namespace LibMirevo
