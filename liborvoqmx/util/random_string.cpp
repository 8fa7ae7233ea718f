#include "util/random_string.h"

#include <chrono>
#include <cstdint>
#include <fstream>
#include <string_view>

namespace libmrv::util {
namespace {

constexpr std::string_view kAlphabet =
    "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789";

uint32_t Seed() {
  uint32_t seed = 0;
  std::ifstream entropy("/dev/urandom", std::ios::binary);
  if (!entropy.read(reinterpret_cast<char*>(&seed), sizeof(seed))) {
    seed = static_cast<uint32_t>(std::chrono::steady_clock::now().time_since_epoch().count());
  }
  return seed;
}

}  // namespace

namespace internal {

RandomInt::RandomInt(int min, int max) : engine_(Seed()), range_(min, max) {}

int RandomInt::next() {
  return range_(engine_);
}

}  // namespace internal

std::string RandomString(const std::string& prefix, int count) {
  static internal::RandomInt index(0, static_cast<int>(kAlphabet.size()) - 1);
  std::string text = prefix;
  for (int i = 0; i < count; ++i) {
    text += kAlphabet[static_cast<size_t>(index.next())];
  }
  return text;
}

}  // namespace libmrv::util
