// The boxes of CMAF headers and chunks.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace orvo::transcoder {

// A frame of pictures or sound. All times are in ticks of its track's clock.
struct CmafSample {
  int64_t time = 0;        // when it is shown
  int64_t decodeTime = 0;  // when it is decoded
  int64_t duration = 0;    // up to the next one's decode time
  bool isKey = false;
  std::string data;
};

// The sample description box of a track whose codec is not described; its last byte is the closing
// zero.
inline constexpr char kCmafNoCodec[] = "\0\0\0\x10stsd\0\0\0\0\0\0\0";

// What FFmpeg has written about a track.
struct CmafTrack {
  bool isPicture = false;
  uint32_t clock = 0;        // ticks a second
  uint16_t language = 0;     // as in the media header box
  std::string display;       // matrix, width and height, as at the end of the track header box
  std::string descriptions;  // the whole sample description box
};

// A header ("ftyp" and "moov"). The first picture of a segment is shown `delay` ticks after it is
// decoded; an edit list takes that off again.
std::string CmafHeader(const CmafTrack& track, int64_t delay);

// A chunk ("moof" and "mdat"). Its samples follow each other. `sequence` counts from 1.
std::string CmafChunk(const CmafTrack& track, const std::vector<CmafSample>& samples, int64_t delay,
                      uint32_t sequence, int64_t start);

}  // namespace orvo::transcoder
