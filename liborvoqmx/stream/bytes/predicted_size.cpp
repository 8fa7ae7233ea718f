#include "stream/bytes/predicted_size.h"

#include <cmath>
#include <cstdio>
#include <limits>

#include "util/number.h"
#include "util/qmxutils.h"

namespace LibOrvoQMX {
namespace {

constexpr int kUnknown = -1;
constexpr int kBitsPerKilobit = 1024;

// The number behind a two-letter prefix.
bool ParseRate(const std::string& part, const char* prefix, int& rate) {
  if (part.rfind(prefix, 0) != 0) {
    return false;
  }
  rate = static_cast<int>(LeadingNumber(part.substr(2)));
  return true;
}

}  // namespace

int PromisedBitRate(const std::string& profileKey) {
  int video = kUnknown;
  int audio = kUnknown;
  for (const std::string& part : StringExplode(profileKey, "_\n")) {
    if (!ParseRate(part, "vb", video)) {
      ParseRate(part, "ab", audio);
    }
  }
  if (video == kUnknown || audio == kUnknown) {
    return kUnknown;
  }
  return static_cast<int>((int64_t{video} + 2 * int64_t{audio}) * kBitsPerKilobit);
}

int64_t PredictedSize(int bitRate, float seconds) {
  if (seconds <= 0 || bitRate == kUnknown) {
    return 0;
  }
  return static_cast<int64_t>(static_cast<float>(bitRate) * seconds * 0.125F);
}

int SecondOfByte(int64_t offset, int bitRate) {
  // No film has a byte whose position in bits exceeds 64 bits.
  if (bitRate <= 0 || offset > std::numeric_limits<int64_t>::max() / 8 ||
      offset < std::numeric_limits<int64_t>::min() / 8) {
    return kUnknown;
  }
  return static_cast<int>(offset * 8 / bitRate);
}

std::string ScaledSize(const std::string& requested, float ratio) {
  if (requested != "hd480" && requested != "hd720") {
    return requested;
  }
  const int height = requested == "hd480" ? 480 : 720;
  const float exactWidth = ratio * static_cast<float>(height);
  const int width = static_cast<int>(10 * std::ceil(static_cast<double>(exactWidth) / 10));
  char text[64];
  snprintf(text, sizeof(text), "%dx%d", width, height);
  return text;
}

}  // namespace LibOrvoQMX
