// The bytes of a file that a request asks for.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace webapi {

struct ByteRange {
  int64_t first = 0;
  int64_t last = -1;  // inclusive

  int64_t Length() const { return last - first + 1; }
};

// Reads a "Range" header with one range ("bytes=0-99", "bytes=100-", "bytes=-50") for a resource of
// `size` bytes. Returns nothing for any other header, several ranges included; the request then
// means the whole resource. Sets `outside` if the range is well-formed but contains no byte of the
// resource.
std::optional<ByteRange> ParseByteRange(const std::string& header, int64_t size, bool& outside);

// Does an "If-None-Match" header contain `tag`? Weak tags count.
bool NamesTag(const std::string& header, const std::string& tag);

}  // namespace webapi
