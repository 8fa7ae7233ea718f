// What a transcoding profile's text makes of a stream on this appliance.
#pragma once

#include <string>

#include "platform/export.h"

namespace LibOrvoQMX {

struct ORVO_API ProfileTraits {
  bool remux = false;      // the video is copied
  bool hardware = false;   // the encoder is the hardware's
  bool gstreamer = false;  // the arguments are the GStreamer wrapper's
  bool vaapi = false;      // the encoder is VA-API's, whether or not this appliance has it

  static ProfileTraits Of(const std::string& profileValue);
};

}  // namespace LibOrvoQMX
