// Decimal numbers in texts that somebody else wrote. Each is read once, where the text comes in.
#pragma once

#include <cstdint>
#include <optional>
#include <string_view>

#include "util/number.h"

namespace webapi {

// The whole number that all of `text` is.
using LibOrvoQMX::ParseNumber;

// Takes such a number off the front of `text`. Nothing, and `text` as it was, where there is none.
std::optional<int64_t> TakeNumber(std::string_view& text);

// The number that all of `text` is, whole or with a fraction, without a sign and an exponent.
// Nothing for any other text.
std::optional<double> ParseDecimal(std::string_view text);

// Takes a number of any sign off the front of `text`, behind blanks, with a fraction or an exponent
// where there is one. Nothing, and `text` as it was, where there is none.
std::optional<double> TakeDecimal(std::string_view& text);

}  // namespace webapi
