// All there is to say of one film to a viewer who chooses.
#pragma once

#include "webapi/http/answer.h"
#include "webapi/http/request.h"

namespace webapi {

// The metadata document of the film "path", the subtitles found, every profile with what it would
// do and why, and whether the client ("device", else its User-Agent) can play the file as it is.
Answer DescribeFilm(const Request& request);

}  // namespace webapi
