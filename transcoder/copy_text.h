// A copy as text, for the process that makes it.
#pragma once

#include <optional>
#include <string>

#include "transcoder/film_copy.h"

namespace orvo::transcoder {

std::string TextOf(const FilmCopy& copy);

// Reads such a text. Returns nothing if it has another form.
std::optional<FilmCopy> ParseFilmCopy(const std::string& text);

}  // namespace orvo::transcoder
