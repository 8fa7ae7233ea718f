// Reads decimal numbers in texts from outside. Each number is read once, where the text enters the
// program.
#pragma once

#include <cstdint>
#include <optional>
#include <string_view>

#include "util/number.h"

namespace webapi {

// The whole number in `text`, or at its front.
using LibOrvoQMX::ParseNumber;
using LibOrvoQMX::TakeNumber;

// The number in `text`, if all of `text` is a number: whole or with a fraction, without sign and
// exponent. Nothing for any other text.
std::optional<double> ParseDecimal(std::string_view text);

// Removes a number from the front of `text`, after blanks, and returns it. It may have a sign, a
// fraction and an exponent. Returns nothing and leaves `text` unchanged if there is none.
std::optional<double> TakeDecimal(std::string_view& text);

}  // namespace webapi
