// Finds films by name.
#pragma once

#include "webapi/http/answer.h"
#include "webapi/http/request.h"

namespace webapi {

// The text in lower case, for the letters of all scripts. Bytes that are not UTF-8 stay unchanged.
std::string FoldCase(const std::string& text);

// The films below the roots (or "path") whose names contain "q", ignoring case, sorted by name.
// "truncated" is true if the time was too short to search everything.
Answer SearchFilms(const Request& request);

}  // namespace webapi
