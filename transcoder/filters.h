// Filter chains, as "-vf" takes them, with and without the hardware that they were written for.
#pragma once

#include <string>

#include "transcoder/high_range.h"

namespace orvo::transcoder {

// The chain for pictures in main memory: filters that need a device give way to ones that do the
// same without it, or to nothing. Empty when nothing is left.
std::string SoftwareFilters(const std::string& chain);

// The chain for a VA-API encoder: the pictures pass the filters of `last` (or none, when it is
// empty) and are put on the device at its end. A chain that uploads by itself gets `last` alone.
std::string VaapiFilters(const std::string& chain, const std::string& last);

// The filter that scales to this size: "1280x720", the name of a size, or empty for none.
std::string ScaleFilter(const std::string& size);

// Two chains, one behind the other. Either may be empty.
std::string JoinFilters(const std::string& first, const std::string& second);

// The filters that make eight bits of standard range in BT.709 of pictures of a high range.
std::string ToneMapping(const HighRange& range);

// The filters that mix sound down to stereo: the center at -3 dB beside the sides, and peaks
// limited to what can be played. At night speech becomes louder, and what is 20 dB over it comes
// within 6 dB.
std::string StereoMix(bool atNight);

}  // namespace orvo::transcoder
