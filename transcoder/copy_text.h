// Work for the parent of copies, as text.
#pragma once

#include <optional>
#include <string>
#include <variant>

#include "transcoder/cmaf_request.h"
#include "transcoder/film_copy.h"

namespace orvo::transcoder {

// A film as one stream, or the packets of one track of it (Treatment::kPackets).
using CopyWork = std::variant<FilmCopy, CmafRequest>;

// Without the names of films and folders, but for the log.
std::string TextOf(const CopyWork& work);

// Reads such a text. Returns nothing if it has another form.
std::optional<CopyWork> ParseCopyWork(const std::string& text);

}  // namespace orvo::transcoder
