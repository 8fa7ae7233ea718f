// What people and their programs have written about a film: NFO files beside it, and the tags in
// it.
#pragma once

#include <json/value.h>

#include <string>
#include <string_view>

#include "platform/media_file.h"

namespace webapi {

// The notes in the text of an NFO file: "title", "show", "plot" (texts), "year", "season",
// "episode" (numbers); what is missing or malformed is left out. Markup inside a text is left out
// too. Takes time in proportion to the text's length.
Json::Value ParseNotes(std::string_view text);

// The notes of the NFO file beside a film, "NAME.nfo" for "NAME.mkv"; an empty object without one.
Json::Value NotesBeside(const orvo::MediaFile& film);

}  // namespace webapi
