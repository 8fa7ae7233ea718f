// Which bytes of a file a request asks for.
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

// The one range of a "Range" header ("bytes=0-99", "bytes=100-", "bytes=-50") in a resource of
// `size` bytes. Nothing for a header of another form, several ranges included, which means all of
// it. `outside` is set where the range is well-formed and holds no byte of the resource.
std::optional<ByteRange> ParseByteRange(const std::string& header, int64_t size, bool& outside);

// Is `tag` among those of an "If-None-Match" header? Weak ones count.
bool NamesTag(const std::string& header, const std::string& tag);

}  // namespace webapi
