// The previews of a film in one picture.
#pragma once

#include <string>

#include "util/film_previews.h"

namespace orvo::analyze {

// Decodes key frames from all over a film and puts them small into one JPEG, row by row. A part of
// the film that cannot be decoded stays black. Returns "" if nothing can be decoded. Runs for
// seconds to minutes; for a confined process.
std::string MakePreviewSheet(const std::string& path, PreviewLayout& layout);

}  // namespace orvo::analyze
