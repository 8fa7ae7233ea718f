#include "util/md5.h"

#include <openssl/evp.h>
#include <openssl/opensslv.h>

#include <array>
#include <fstream>

#include "platform/io.h"
#include "platform/log.h"
#include "util/lazy_library.h"

#define ORVO_TEXT_OF(macro) #macro
#define ORVO_EXPANDED_TEXT_OF(macro) ORVO_TEXT_OF(macro)
#define ORVO_CRYPTO_SOVERSION ORVO_EXPANDED_TEXT_OF(OPENSSL_SHLIB_VERSION)

namespace LibMirevo {
namespace {

// Only opening a stream needs a digest, and this library takes longer to load than all others
// together.
class Crypto {
 public:
  static const Crypto& Get() {
    static const Crypto crypto;
    return crypto;
  }

  // The length of the digest; 0 on failure.
  unsigned Md5(const std::string& text, unsigned char* digest) const {
    unsigned length = 0;
    const bool done =
        loaded_ && digest_(text.data(), text.size(), digest, &length, md5_(), nullptr) == 1;
    return done ? length : 0;
  }

 private:
  Crypto() : library_("libcrypto.so." ORVO_CRYPTO_SOVERSION) {
    loaded_ = library_.Find("EVP_Digest", digest_) && library_.Find("EVP_md5", md5_);
    if (!loaded_) {
      ORVO_LOG("Failed to load libcrypto");
    }
  }

  orvo::LazyLibrary library_;
  decltype(&EVP_Digest) digest_ = nullptr;
  decltype(&EVP_md5) md5_ = nullptr;
  bool loaded_ = false;
};

}  // namespace

std::string GetMD5(const std::string& text) {
  std::array<unsigned char, EVP_MAX_MD_SIZE> digest{};
  const unsigned length = Crypto::Get().Md5(text, digest.data());
  constexpr char kDigits[] = "0123456789abcdef";
  std::string hex;
  for (unsigned i = 0; i < length; ++i) {
    hex += kDigits[digest[i] >> 4];
    hex += kDigits[digest[i] & 0xf];
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
  if (!orvo::ReadAll(file, content)) {
    ORVO_LOG("failed to read content");
    return "";
  }
  return GetMD5(content);
}

}  // namespace LibMirevo
