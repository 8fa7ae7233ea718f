// The name of this appliance's platform, and the video features of its hardware.
#pragma once

#include <string>

#include "platform/export.h"

namespace libmrv::util {

class ORVO_API PlatformUtils {
 public:
  // Reads the platform's name from the appliance's configuration.
  PlatformUtils();

  // The process's only instance, made on first use.
  static PlatformUtils& GetInst();

  bool IsEvansport() const;
  bool IsBraswell() const;
  bool IsMonaco() const;
  bool IsApolloLake() const;
  bool IsSupportVaapi() const;
  bool IsSupportGstreamer() const;
  bool IsSupportHWTranscode() const;

  // May hardware transcoding be used? Yes if the platform has it and the administrator has not
  // switched it off; always yes on monaco. Reads the setting on every call.
  bool IsHWSettingEnabled() const;

  // Is the VA-API build of FFmpeg used? Only on braswell, and only if it is switched on.
  bool IsVaapiFFmpegEnabled() const;

  // The first line of "/proc/orvo_platform"; "" if there is none.
  std::string GetHostPlatformName() const;

  // The platform of the host, for a process in a container; "x86" if it is unknown.
  std::string GetDockerHostPlatformName();

  // The text after the colon in the first line of "/proc/cpuinfo" whose name contains `key`,
  // unchanged; "" if there is no such line.
  std::string GetCPUInfo(const std::string& key) const;

  // The name that selects the transcoding profiles: a name, "_" and level 1 or 2.
  std::string GetTransPlatformName();

  // Sets `platform` to the second "_"-separated field of `unique`. Returns false and leaves
  // `platform` unchanged if there is no such field.
  bool ParsePlatform(const std::string& unique, std::string& platform) const;

  // Reads the platform's name; the constructor calls it.
  void GetPlatformName();

 private:
  std::string m_platform;
  std::string m_dockerHostPlatform;
};

}  // namespace libmrv::util
