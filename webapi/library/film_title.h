// One line that tells a film from all others, as the page has it: "The Long Journey (2019)",
// "Harbour Lights S01E02 – The Storm". The page's rules are in player/src/titles.js; both read the
// patterns of player/src/title_patterns.js and are tested with the same names.
#pragma once

#include <json/value.h>

#include <string>

namespace webapi {

// Of the film at `path`. `notes`: those of film_notes.h, which count first. `tag`: the title in the
// film, for a name that tells no more than itself. Without any of them it is the name of the file
// without its ending.
std::string TitleLine(const std::string& path, const Json::Value& notes, const std::string& tag);

}  // namespace webapi
