#include "policy/profile_traits.h"

#include "policy/platform_utils.h"

namespace LibOrvoQMX {

ProfileTraits ProfileTraits::Of(const std::string& profileValue) {
  const auto contains = [&](const char* piece) {
    return profileValue.find(piece) != std::string::npos;
  };
  const libmrv::util::PlatformUtils& platform = libmrv::util::PlatformUtils::GetInst();
  ProfileTraits traits;
  traits.remux = contains("h264_mp4toannexb");
  traits.vaapi = contains("h264_vaapi");
  if (platform.IsEvansport()) {
    traits.hardware = contains("h264_smd");
  } else if (platform.IsSupportGstreamer()) {
    traits.gstreamer = contains("--acodec");
    traits.hardware = traits.gstreamer || traits.vaapi;
  }
  return traits;
}

}  // namespace LibOrvoQMX
