// The properties that a transcoding profile gives a stream on this appliance.
#pragma once

#include <string>

#include "platform/export.h"

namespace LibOrvoQMX {

struct ORVO_API ProfileTraits {
  bool remux = false;      // the video is copied
  bool hardware = false;   // the hardware encodes
  bool gstreamer = false;  // the arguments are for the GStreamer wrapper
  bool vaapi = false;      // the profile names the VA-API encoder, which this appliance may lack

  static ProfileTraits Of(const std::string& profileValue);
};

}  // namespace LibOrvoQMX
