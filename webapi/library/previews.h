// Previews of films, for the seek bars of players.
#pragma once

#include <json/value.h>

#include "platform/media_file.h"
#include "webapi/http/answer.h"
#include "webapi/http/request.h"

namespace webapi {

// The layout of the film's previews for the web API; null if there are none (yet).
Json::Value DescribePreviews(const orvo::MediaFile& film);

// Sends the previews of the film "path".
Answer SendPreviews(const Request& request);

}  // namespace webapi
