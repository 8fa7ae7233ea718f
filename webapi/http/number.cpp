#include "webapi/http/number.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <system_error>

namespace webapi {
namespace {

bool IsDigit(char c) {
  return c >= '0' && c <= '9';
}

}  // namespace

std::optional<double> ParseDecimal(std::string_view text) {
  const bool isPlain =
      std::all_of(text.begin(), text.end(), [](char c) { return IsDigit(c) || c == '.'; });
  const auto number = isPlain ? TakeDecimal(text) : std::nullopt;
  return text.empty() ? number : std::nullopt;
}

std::optional<double> TakeDecimal(std::string_view& text) {
  const size_t blanks = std::min(text.find_first_not_of(' '), text.size());
  const std::string_view rest = text.substr(blanks);
  double number = 0;
  const auto parsed = std::from_chars(rest.data(), rest.data() + rest.size(), number);
  if (parsed.ec != std::errc() || !std::isfinite(number)) {
    return std::nullopt;
  }
  text = rest.substr(static_cast<size_t>(parsed.ptr - rest.data()));
  return number;
}

}  // namespace webapi
