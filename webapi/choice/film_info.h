// All data about one film that helps a viewer to choose.
#pragma once

#include "webapi/http/answer.h"
#include "webapi/http/request.h"

namespace webapi {

// The metadata document of the film "path", its subtitles, every profile with its effect and the
// reason, whether the client ("device", else its User-Agent) can play the file without conversion,
// and why a CMAF presentation does not contain the film's own pictures.
Answer DescribeFilm(const Request& request);

}  // namespace webapi
