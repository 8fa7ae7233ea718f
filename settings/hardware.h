// The owner's wish to encode on the machine's video engines.
#pragma once

#include "settings/outcome.h"

namespace settings {

// Is hardware wanted by the settings?
bool IsHardwareWanted();

// Writes the owner's wish: "hardware_transcode" in advanced.conf, "enable" in vaapi_ffmpeg. Their
// other values stay as they are.
Outcome WantHardware(bool isWanted);

// Writes what was found out about the machine to vaapi_ffmpeg, unless the owner has decided.
Outcome DetectVaapi(bool isProved);

}  // namespace settings
