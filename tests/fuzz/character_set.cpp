// Texts in any character set. The first line of the input names the set.
#include "webapi/subtitles/character_set.h"
#include "fuzz/fuzz.h"
#include "webapi/http/request.h"

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  constexpr size_t kMostBytesPerByte = 8;
  const auto parts = fuzz::Parts(fuzz::TextOf(data, size), '\n', 2);
  const std::string set = webapi::IsCharacterSet(parts[0]) ? parts[0] : "";
  const std::string converted = webapi::ToUtf8(parts[1], set);
  fuzz::Demand(converted.size() <= kMostBytesPerByte * size);
  fuzz::Demand(webapi::IsUtf8(converted));
  return 0;
}
