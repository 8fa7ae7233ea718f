// All fixed paths of the system, and helpers for the files there.
#pragma once

#include <json/value.h>

#include <string>

#include "platform/export.h"

namespace LibOrvoQMX {

inline constexpr char kTempRoot[] = "/tmp/Mirevo";
inline constexpr char kVolumeTempRoot[] = "/@tmp/Mirevo";  // relative to a volume's mount path
inline constexpr char kRegistryFile[] = "/tmp/Mirevo/enabled";
inline constexpr char kOfflineConversionPidFile[] = "/run/orvovideoconversiond.pid";
inline constexpr char kApplianceFile[] = "/etc.defaults/orvoinfo.conf";
inline constexpr char kAdvancedFile[] = "/var/packages/Mirevo/etc/advanced.conf";
inline constexpr char kVaapiFile[] = "/var/packages/Mirevo/etc/vaapi_ffmpeg";
inline constexpr char kHostPlatformFile[] = "/proc/orvo_platform";
inline constexpr char kCpuInfoFile[] = "/proc/cpuinfo";
inline constexpr char kCacheFolder[] = "/var/packages/Mirevo/cache";  // may be emptied at any time
inline constexpr char kNoPreAnalysisFile[] = "/var/packages/Mirevo/etc/not_using_pre_analysis";
// The system's own FFmpeg, which the transcoder programs run.
inline constexpr char kFFmpeg[] = "/usr/bin/ffmpeg";
inline constexpr char kTranscoder[] = "/var/packages/Mirevo/target/bin/ffmpeg";
inline constexpr char kVaapiTranscoder[] = "/var/packages/Mirevo/target/bin/ffmpeg_vaapi";
inline constexpr char kGstreamerWrapper[] = "/var/packages/Mirevo/target/bin/orvo-gst";

// The directory of one kind of streams, and the directory of one stream: "/tmp/Mirevo" / kind /
// stream id.
ORVO_API std::string StreamKindPath(const std::string& kind);
std::string StreamPath(const std::string& kind, const std::string& streamId);

// The target of a symbolic link; "" if the path is not a link.
std::string LinkTarget(const std::string& path);

// Is this a plain name that cannot lead to another directory?
bool IsPlainName(const std::string& name);

// The content of a transcoding profile file; null if it cannot be read. A request asks for several
// profiles of one file, so the file that was read last is kept until it changes.
ORVO_API const Json::Value& ReadProfiles(const std::string& profilePath);

// Reads one key of a transcoding profile file as a text. Returns false if the path or the key is
// empty, the file cannot be read or it lacks the key.
bool ReadProfileValue(const std::string& profilePath, const std::string& profileKey,
                      std::string& value);

}  // namespace LibOrvoQMX
