// All data about one film that helps a viewer to choose.
#pragma once

#include "webapi/http/answer.h"
#include "webapi/http/request.h"

namespace webapi {

// The metadata document of the film "path", its subtitles, every profile with its effect and the
// reason, and whether the client ("device", else its User-Agent) can play the file without
// conversion.
Answer DescribeFilm(const Request& request);

}  // namespace webapi
