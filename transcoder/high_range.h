// How pictures of a high dynamic range are coded.
#pragma once

#include <optional>

namespace orvo::transcoder {

// Numbers are those of ISO/IEC 23091-2, which FFmpeg and its filters use too.
struct HighRange {
  int transfer;
  int primaries;
  int matrix;
  bool isFull;  // levels from 0 on, without room below black
};

// The coding of pictures in PQ or HLG that are described like this; nothing for all others. Colors
// that are not told, or that no filter understands, become those that such films nearly always
// have.
std::optional<HighRange> HighRangeOf(const HighRange& described);

}  // namespace orvo::transcoder
