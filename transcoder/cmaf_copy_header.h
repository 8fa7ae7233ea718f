// Describes a copied track without its packets.
#pragma once

#include <cstdint>
#include <optional>

#include "transcoder/av_functions.h"
#include "transcoder/cmaf_boxes.h"

namespace orvo::transcoder {

// What libavformat writes about the track into an MP4 header with this clock. Nothing for a track
// that the container does not describe well enough: some codecs need a packet or a decoder for it.
std::optional<CmafTrack> DescribeCopy(const AvFunctions& av, const AVStream& stream,
                                      uint32_t clock);

}  // namespace orvo::transcoder
