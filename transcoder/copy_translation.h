// Which command lines libavformat alone can do.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "transcoder/film_copy.h"
#include "transcoder/segment_translation.h"

namespace orvo::transcoder {

// Added to "-movflags": each fragment states the film's clock, and the header waits for the first
// packets to learn how far sound and picture start apart.
inline constexpr char kClockOfFragments[] = "+frag_discont+delay_moov";

// What the multiplexer of a stream is told: its usual delay would move the film's clock.
inline constexpr char kByteStream[] = "max_delay=0";

// The copies that a command line, whose values are good, asks for. Nothing when it asks for
// anything that CopyFilm() does not do: then FFmpeg does all of it.

// A copy that becomes segments.
std::optional<FilmCopy> PlanCopy(const std::vector<std::string>& arguments,
                                 const SegmentRequest& request, const SegmentEntry& entry);

// A copy that is one stream with the film's clock. `start`: where it begins, in seconds.
// `soundFilters`: of sound that is encoded.
std::optional<FilmCopy> PlanByteCopy(const std::vector<std::string>& arguments, double start,
                                     const std::string& soundFilters);

}  // namespace orvo::transcoder
