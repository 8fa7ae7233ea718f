// Finds films by name.
#pragma once

#include "webapi/http/answer.h"
#include "webapi/http/request.h"

namespace webapi {

// The films and folders below the roots (or "path"), sorted by name, in whose names the words of
// "q" occur: in any order and case, with or without accents. Words may also stand in the names of
// the folders above, but not all of them. "truncated" when there may be more than what was looked
// at in the time.
Answer SearchFilms(const Request& request);

}  // namespace webapi
