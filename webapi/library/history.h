// How far each account has watched each film.
#pragma once

#include "webapi/http/answer.h"
#include "webapi/http/request.h"

namespace webapi {

// Is a film as good as watched to its end at this second?
bool IsFinished(int64_t position, int64_t duration);

// The films that were watched and are still there, the newest first.
Answer ListHistory(const Request& request);

// How far the film at "path" was watched: "position" 0 where it was not.
Answer GetHistory(const Request& request);

// Keeps "position" and "duration" (seconds) of the film at "path"; of five hundred films at most.
Answer SaveHistory(const Request& request);

// Forgets the film at "path", be it there or not; all films without one.
Answer RemoveHistory(const Request& request);

}  // namespace webapi
