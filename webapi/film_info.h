// All there is to say of one film to a viewer who chooses.
#pragma once

#include <string>

#include "webapi/answer.h"

namespace webapi {

// The metadata document, the subtitles found, and every profile with what it would do and why.
Answer DescribeFilm(const std::string& path);

}  // namespace webapi
