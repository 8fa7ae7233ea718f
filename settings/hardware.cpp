#include "settings/hardware.h"

#include <cerrno>

#include "settings/settings_lock.h"
#include "util/system_files.h"

namespace settings {

bool IsHardwareWanted() {
  return ReadSettings(LibOrvoQMX::kAdvancedFile)["hardware_transcode"] != false;
}

bool WantHardware(bool isWanted) {
  const auto lock = HoldSettings();
  if (!lock.IsHeld()) {
    errno = EACCES;
    return false;
  }
  Json::Value advanced = ReadSettings(LibOrvoQMX::kAdvancedFile);
  advanced["hardware_transcode"] = isWanted;
  Json::Value vaapi(Json::objectValue);
  vaapi["enable"] = isWanted;
  return WriteSettings(LibOrvoQMX::kAdvancedFile, advanced) &&
         WriteSettings(LibOrvoQMX::kVaapiFile, vaapi);
}

}  // namespace settings
