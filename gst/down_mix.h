// Two channels from however many a film has.
#pragma once

#include <gst/gst.h>

#include <string>

namespace orvo::gst {

// The element that mixes sound of these caps into two channels, as a text for a pipeline. FFmpeg
// mixes with the same factors, so streams of both programs are as loud.
std::string DownMixOf(const GstCaps* caps);

}  // namespace orvo::gst
