// Finding films by name.
#pragma once

#include "webapi/http/answer.h"
#include "webapi/http/request.h"

namespace webapi {

// The text in lower case, the letters of all scripts; bytes that are no UTF-8 stay as they are.
std::string FoldCase(const std::string& text);

// The films below the roots (or "path") whose names contain "q" in any case, sorted by name.
// "truncated" when there may be more than what was looked at in the time.
Answer SearchFilms(const Request& request);

}  // namespace webapi
