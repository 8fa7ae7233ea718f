// The dynamic range of a film's pictures.
#pragma once

#include <optional>
#include <string>

#include "transcoder/high_range.h"

namespace orvo::transcoder {

// The coding of a film in PQ or HLG. Nothing for every other film, and for what cannot be opened.
std::optional<HighRange> FindHighRange(const std::string& path);

// True for a film whose codec may have more than eight bits and whose container says nothing of its
// colors: FindHighRange() has to load FFmpeg's libraries for it.
bool HidesItsRange(const std::string& path);

}  // namespace orvo::transcoder
