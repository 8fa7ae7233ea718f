// The description of pictures that H.264 and HEVC carry among the pictures.
#pragma once

#include <string>

#include "transcoder/av_functions.h"

namespace orvo::transcoder {

// The sequence parameter sets in a packet whose units have start codes, one behind the other: size,
// profile and so on of the pictures from here on. "" if there are none.
std::string SequenceSets(AVCodecID codec, const AVPacket& packet);

// Does the container announce with this packet that the pictures from here on are described anew?
bool AnnouncesChange(const AVPacket& packet);

}  // namespace orvo::transcoder
