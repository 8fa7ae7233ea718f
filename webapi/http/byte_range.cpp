#include "webapi/http/byte_range.h"

#include <algorithm>
#include <string_view>

#include "webapi/http/number.h"

namespace webapi {
namespace {

using LibOrvoQMX::ParseNumber;

constexpr std::string_view kUnit = "bytes=";

bool IsBlank(char c) {
  return c == ' ' || c == '\t';
}

std::string_view Trim(std::string_view text) {
  while (!text.empty() && IsBlank(text.front())) {
    text.remove_prefix(1);
  }
  while (!text.empty() && IsBlank(text.back())) {
    text.remove_suffix(1);
  }
  return text;
}

std::optional<ByteRange> Suffix(std::string_view text, int64_t size) {
  const auto length = ParseNumber(text);
  return length ? std::optional(ByteRange{size - std::min(*length, size), size - 1}) : std::nullopt;
}

}  // namespace

std::optional<ByteRange> ParseByteRange(const std::string& header, int64_t size, bool& outside) {
  outside = false;
  if (header.compare(0, kUnit.size(), kUnit) != 0) {
    return std::nullopt;
  }
  const std::string_view range = Trim(std::string_view(header).substr(kUnit.size()));
  const auto dash = range.find('-');
  if (dash == std::string_view::npos) {
    return std::nullopt;
  }
  std::optional<ByteRange> found;
  if (dash == 0) {
    found = Suffix(range.substr(1), size);
  } else {
    const auto first = ParseNumber(range.substr(0, dash));
    const auto last = dash + 1 == range.size() ? size - 1 : ParseNumber(range.substr(dash + 1));
    if (first && last && (*first <= *last || *last == size - 1)) {
      found = ByteRange{*first, std::min(*last, size - 1)};
    }
  }
  outside = found && found->Length() <= 0;
  return outside ? std::nullopt : found;
}

bool NamesTag(const std::string& header, const std::string& tag) {
  constexpr std::string_view kWeak = "W/";
  std::string_view rest = header;
  while (!rest.empty()) {
    const auto comma = std::min(rest.find(','), rest.size());
    std::string_view candidate = Trim(rest.substr(0, comma));
    rest.remove_prefix(std::min(comma + 1, rest.size()));
    if (candidate == "*") {
      return true;
    }
    if (candidate.compare(0, kWeak.size(), kWeak) == 0) {
      candidate.remove_prefix(kWeak.size());
    }
    if (candidate == tag) {
      return true;
    }
  }
  return false;
}

}  // namespace webapi
