// Converts texts in any character set to UTF-8.
#pragma once

#include <string>

namespace webapi {

// Is `name` valid for ToUtf8? It must consist of letters, digits, "-", "_", "." and ":", and this
// system must know the set.
bool IsCharacterSet(const std::string& name);

// The text in UTF-8, without a byte order mark. The mark decides the character set; else `name`;
// else, for "", it is UTF-8 if the text is valid, or a guess. Invalid bytes become U+FFFD.
std::string ToUtf8(const std::string& text, const std::string& name);

}  // namespace webapi
