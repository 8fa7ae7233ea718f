// The facts of a film for its tile in a list.
#pragma once

#include <json/value.h>

#include <cstdint>
#include <optional>
#include <string>

#include "platform/media_file.h"
#include "webapi/http/answer.h"
#include "webapi/http/request.h"

namespace webapi {

// "duration" (seconds), "width" and "height" (as displayed; of the cover for music), "video" and
// "audio" (codec names; "" if there is no such track), "music" (a boolean), "title", "artist" and
// "album" (tags in the film; "" if missing). The cache stores them.
// If the file is not a film, or if too many requests wait for films, returns nothing and sets
// `refusal` to the answer.
std::optional<Json::Value> FactsOf(const orvo::MediaFile& film, Answer& refusal);

// The same facts if the cache knows them; nothing otherwise, and for what is not a film. `film` may
// be closed.
std::optional<Json::Value> KnownFacts(const orvo::MediaFile& film);

// The length in seconds, if the cache knows it. `film` may be closed.
std::optional<int64_t> KnownLength(const orvo::MediaFile& film);

// The facts and, in "notes", those of film_notes.h. For a folder, the facts of folder_card.h.
Answer DescribeCard(const Request& request);

}  // namespace webapi
