// Fonts attached to films, for players that draw subtitles with styles.
#pragma once

#include <json/value.h>

#include "platform/media_file.h"
#include "webapi/http/answer.h"
#include "webapi/http/request.h"

namespace webapi {

// An array of the film's fonts for the web API.
Json::Value DescribeFonts(const orvo::MediaFile& film);

// Sends the font "id" of the film "path".
Answer SendFont(const Request& request);

}  // namespace webapi
