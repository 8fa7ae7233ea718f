// Texts in any character set, made UTF-8.
#pragma once

#include <string>

namespace webapi {

// May `name` be given to ToUtf8: letters, digits, "-", "_", "." and ":", and a set that this system
// knows?
bool IsCharacterSet(const std::string& name);

// The text in UTF-8, without a byte order mark. The character set is what the mark says, else
// `name`, else (for "") UTF-8 where it fits, else a guess. Bytes that mean nothing become U+FFFD.
std::string ToUtf8(const std::string& text, const std::string& name);

}  // namespace webapi
