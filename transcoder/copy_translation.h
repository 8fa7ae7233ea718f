// Which command lines libavformat alone can do.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "transcoder/film_copy.h"
#include "transcoder/segment_translation.h"

namespace orvo::transcoder {

// The copy that this command line, whose values are good, asks for. Nothing when it asks for
// anything that CopyFilm() does not do: then FFmpeg does all of it.
std::optional<FilmCopy> PlanCopy(const std::vector<std::string>& arguments,
                                 const SegmentRequest& request, const SegmentEntry& entry);

}  // namespace orvo::transcoder
