// The position in each film that each account has watched.
#pragma once

#include <cstdint>
#include <set>
#include <string>

#include "webapi/http/answer.h"
#include "webapi/http/request.h"

namespace webapi {

// Does a film count as watched to its end at this second?
bool IsFinished(int64_t position, int64_t duration);

// The real paths of the films that the caller has watched to their end; some may be gone.
std::set<std::string> FinishedFilms(const Request& request);

// The watched films that still exist, the newest first.
Answer ListHistory(const Request& request);

// The position in the film at "path"; "position" is 0 if it was not watched.
Answer GetHistory(const Request& request);

// Stores "position" and "duration" (seconds) of the film at "path". Stores at most five hundred
// films.
Answer SaveHistory(const Request& request);

// Forgets the film at "path", which need not exist. Without a path it forgets all films.
Answer RemoveHistory(const Request& request);

}  // namespace webapi
