// Films that are converted in advance, to files that play everywhere (convert/queue.h).
#pragma once

#include "webapi/http/answer.h"
#include "webapi/http/request.h"

namespace webapi {

// Adds the film at "path" with the "profile", which may be missing. Answers with its "id"; a film
// that is there already keeps its id.
Answer AddConversion(const Request& request);

// The conversions of all films that the caller may see, and whether the owner has paused all.
Answer ListConversions(const Request& request);

// Forgets the conversion "id" and its result. Succeeds also if there is none.
Answer RemoveConversion(const Request& request);

// Sends the result of the conversion "id", or the requested bytes of it.
Answer GetConversion(const Request& request);

}  // namespace webapi
