// Which appliance this is and what its hardware can do for video.
#pragma once

#include <string>

#include "platform/export.h"

namespace libmrv::util {

class ORVO_API PlatformUtils {
 public:
  // Reads the platform's name from the appliance's configuration.
  PlatformUtils();

  // The process's own, made on first use.
  static PlatformUtils& GetInst();

  bool IsEvansport() const;
  bool IsBraswell() const;
  bool IsMonaco() const;
  bool IsApolloLake() const;
  bool IsSupportVaapi() const;
  bool IsSupportGstreamer() const;
  bool IsSupportHWTranscode() const;

  // May hardware transcoding be used? Yes where the platform has it, unless the administrator has
  // switched it off; always on monaco. The setting is read anew on every call.
  bool IsHWSettingEnabled() const;

  // Is the VA-API build of FFmpeg to be used? Only on braswell, and only when switched on.
  bool IsVaapiFFmpegEnabled() const;

  // The first line of "/proc/orvo_platform"; "" when there is none.
  std::string GetHostPlatformName() const;

  // The host's platform, seen from a container; "x86" when unknown.
  std::string GetDockerHostPlatformName();

  // The text after the colon of the first line of "/proc/cpuinfo" whose name contains `key`, as it
  // stands there; "" when there is none.
  std::string GetCPUInfo(const std::string& key) const;

  // The name by which transcoding profiles are picked: a name, "_" and level 1 or 2.
  std::string GetTransPlatformName();

  // The second "_"-separated field of `unique`. False, and `platform` unchanged, when there is
  // none.
  bool ParsePlatform(const std::string& unique, std::string& platform) const;

  // Fills in the platform; what the constructor does.
  void GetPlatformName();

 private:
  std::string m_platform;
  std::string m_dockerHostPlatform;
};

}  // namespace libmrv::util
