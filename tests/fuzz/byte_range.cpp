// The headers "Range" and "If-None-Match". The first line is the header, the second the length of
// the resource.
#include "webapi/http/byte_range.h"
#include "fuzz/fuzz.h"
#include "util/number.h"

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const auto parts = fuzz::Parts(fuzz::TextOf(data, size), '\n', 2);
  const std::string& header = parts[0];
  const int64_t length = LibOrvoQMX::ParseNumber(parts[1]).value_or(1000);
  bool outside = false;
  const auto range = webapi::ParseByteRange(header, length, outside);
  fuzz::Demand(!range || !outside);
  if (range) {
    fuzz::Demand(0 <= range->first && range->first <= range->last && range->last < length);
    const auto again = webapi::ParseByteRange(
        "bytes=" + std::to_string(range->first) + "-" + std::to_string(range->last), length,
        outside);
    fuzz::Demand(again && again->first == range->first && again->last == range->last);
  }
  if (webapi::NamesTag(header, "\"tag\"")) {
    fuzz::Demand(header.find("\"tag\"") != std::string::npos ||
                 header.find('*') != std::string::npos);
  }
  return 0;
}
