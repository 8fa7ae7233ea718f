#include "util/md5.h"

#include <openssl/evp.h>

#include <array>
#include <fstream>

#include "platform/io.h"
#include "platform/log.h"

namespace LibMirevo {

std::string GetMD5(const std::string& text) {
  std::array<unsigned char, EVP_MAX_MD_SIZE> digest{};
  unsigned length = 0;
  if (EVP_Digest(text.data(), text.size(), digest.data(), &length, EVP_md5(), nullptr) != 1) {
    return "";
  }
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
