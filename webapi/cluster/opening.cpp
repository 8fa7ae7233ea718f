#include "webapi/cluster/opening.h"

#include <array>
#include <cstdlib>

#include "util/md5.h"

namespace webapi {
namespace {

constexpr char kVersion = 1;
constexpr size_t kTimeBytes = 4;
constexpr size_t kChecksumBytes = 8;
constexpr size_t kChecksumDigits = 16;

// The number of a word is its place here. Boxes of two releases share tickets, so names are only
// added at the end.
constexpr std::array<std::string_view, 20> kOpeningWords = {
    kPathWord,    kKindWord,       kProfileWord,    "method",           "content_type",
    "account",    "audio_id",      "audio_format",  "subtitle_id",      "subtitle_codepage",
    "codecs",     "max_height",    "dynamic_range", "max_bitrate",      "force_open_qmx",
    "hls_header", "ladder_height", "analysis",      "use_pre_analysis", "sound"};

// Big-endian.
void AppendNumber(std::string& bytes, uint64_t number, size_t size) {
  for (size_t i = size; i-- > 0;) {
    bytes += static_cast<char>((number >> (8 * i)) & 0xff);
  }
}

// Takes so many bytes from the front. Returns nothing if there are fewer.
std::optional<std::string_view> Take(std::string_view& bytes, size_t size) {
  if (bytes.size() < size) {
    return std::nullopt;
  }
  const std::string_view taken = bytes.substr(0, size);
  bytes.remove_prefix(size);
  return taken;
}

std::optional<uint64_t> TakeNumber(std::string_view& bytes, size_t size) {
  const auto taken = Take(bytes, size);
  uint64_t number = 0;
  for (const char byte : taken.value_or("")) {
    number = (number << 8) | static_cast<unsigned char>(byte);
  }
  return taken ? std::optional(number) : std::nullopt;
}

// A length takes one byte up to 127, and two with the first bit set above.
void AppendLength(std::string& bytes, size_t length) {
  if (length < 0x80) {
    AppendNumber(bytes, length, 1);
  } else {
    AppendNumber(bytes, 0x8000 | length, 2);
  }
}

std::optional<size_t> TakeLength(std::string_view& bytes) {
  const bool isLong = !bytes.empty() && (static_cast<unsigned char>(bytes.front()) & 0x80) != 0;
  const auto length = TakeNumber(bytes, isLong ? 2 : 1);
  return length ? std::optional<size_t>(*length & 0x7fff) : std::nullopt;
}

void AppendWord(std::string& bytes, size_t number, const std::string& word) {
  AppendNumber(bytes, number, 1);
  AppendLength(bytes, word.size());
  bytes += word;
}

// Moves one word from the front of `bytes` to `words`. Returns false if it is not whole. A word of
// a newer release is left out.
bool TakeWord(std::string_view& bytes, std::map<std::string, std::string>& words) {
  const auto number = TakeNumber(bytes, 1);
  const auto length = TakeLength(bytes);
  const auto word = length ? Take(bytes, *length) : std::nullopt;
  if (word && number && *number < kOpeningWords.size()) {
    words[std::string(kOpeningWords[*number])] = *word;
  }
  return word.has_value();
}

}  // namespace

std::string Pack(const Opening& opening) {
  std::string bytes(1, kVersion);
  AppendNumber(bytes, static_cast<uint64_t>(opening.issued), kTimeBytes);
  AppendNumber(bytes, opening.film, kChecksumBytes);
  AppendNumber(bytes, opening.plan, kChecksumBytes);
  for (size_t number = 0; number < kOpeningWords.size(); ++number) {
    const auto word = opening.words.find(std::string(kOpeningWords[number]));
    if (word != opening.words.end() && !word->second.empty()) {
      AppendWord(bytes, number, word->second);
    }
  }
  return bytes;
}

std::optional<Opening> Unpack(std::string_view bytes) {
  const auto version = Take(bytes, 1);
  const auto issued = TakeNumber(bytes, kTimeBytes);
  const auto film = TakeNumber(bytes, kChecksumBytes);
  const auto plan = TakeNumber(bytes, kChecksumBytes);
  if (!version || version->front() != kVersion || !issued || !film || !plan) {
    return std::nullopt;
  }
  Opening opening{static_cast<int64_t>(*issued), *film, *plan, {}};
  while (!bytes.empty()) {
    if (!TakeWord(bytes, opening.words)) {
      return std::nullopt;
    }
  }
  return opening;
}

uint64_t ChecksumOf(const std::string& text) {
  return std::strtoull(LibMirevo::GetMD5(text).substr(0, kChecksumDigits).c_str(), nullptr, 16);
}

}  // namespace webapi
