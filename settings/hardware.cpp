#include "settings/hardware.h"

#include "settings/settings_lock.h"
#include "util/system_files.h"

namespace settings {
namespace {

constexpr char kEnable[] = "enable";
constexpr char kDetected[] = "detected";  // no owner has decided

}  // namespace

bool IsHardwareWanted() {
  return ReadSettings(LibOrvoQMX::kAdvancedFile)["hardware_transcode"] != false;
}

Outcome WantHardware(bool isWanted) {
  const Outcome outcome = ChangeSettings(LibOrvoQMX::kAdvancedFile, [&](Json::Value& advanced) {
    advanced["hardware_transcode"] = isWanted;
  });
  return outcome != Outcome::kDone
             ? outcome
             : ChangeSettings(LibOrvoQMX::kVaapiFile, [&](Json::Value& vaapi) {
                 vaapi[kEnable] = isWanted;
                 vaapi.removeMember(kDetected);
               });
}

Outcome DetectVaapi(bool isProved) {
  return ChangeSettings(LibOrvoQMX::kVaapiFile, [&](Json::Value& vaapi) {
    const bool isOwners = vaapi.isMember(kEnable) && vaapi.get(kDetected, false) != true;
    if (!isOwners && (isProved || vaapi.isMember(kEnable))) {
      vaapi[kEnable] = isProved;
      vaapi[kDetected] = true;
    }
  });
}

}  // namespace settings
