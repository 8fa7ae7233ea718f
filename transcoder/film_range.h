// The dynamic range of a film's pictures.
#pragma once

#include <optional>
#include <string>

namespace orvo::transcoder {

// How a picture of high dynamic range is coded. Numbers are those of ISO/IEC 23091-2, which FFmpeg
// and its filters use too.
struct HighRange {
  int transfer;
  int primaries;
  int matrix;
  bool isFull;  // levels from 0 on, without room below black
};

// The coding of a film in PQ or HLG. Nothing for every other film, and for what cannot be opened.
std::optional<HighRange> FindHighRange(const std::string& path);

// True for a film whose codec may have more than eight bits and whose container says nothing of its
// colors: FindHighRange() has to load FFmpeg's libraries for it.
bool HidesItsRange(const std::string& path);

}  // namespace orvo::transcoder
