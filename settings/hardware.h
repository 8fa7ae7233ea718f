// The owner's wish to encode on the machine's video engines.
#pragma once

namespace settings {

// Is hardware wanted by the settings?
bool IsHardwareWanted();

// Writes the owner's wish: "hardware_transcode" in advanced.conf, "enable" in vaapi_ffmpeg. Returns
// false, with errno set, on failure.
bool WantHardware(bool isWanted);

}  // namespace settings
