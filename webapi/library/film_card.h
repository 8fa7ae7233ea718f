// The few facts of a film that a tile in a list shows.
#pragma once

#include <json/value.h>

#include <optional>
#include <string>

#include "webapi/http/answer.h"
#include "webapi/http/request.h"

namespace webapi {

// "duration" (seconds), "width" and "height" (as displayed), "video" and "audio" (codec names, ""
// without such a track). Kept in the cache. Nothing, with the answer in `refusal`, for what is no
// film and while too many requests want to look at one.
std::optional<Json::Value> FactsOf(const std::string& film, Answer& refusal);

Answer DescribeCard(const Request& request);

}  // namespace webapi
