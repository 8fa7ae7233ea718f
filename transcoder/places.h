// The programs and files outside the sources that the transcoder uses.
#pragma once

#include <string>

namespace orvo::transcoder {

inline constexpr char kExecutable[] = "/usr/bin/ffmpeg";  // the stock FFmpeg

// The GStreamer wrapper of this package, below the system root.
inline constexpr char kWrapperProgram[] = "/var/packages/Mirevo/target/bin/orvo-gst";

// The path of a file with this name, which begins with a slash, in the folder for what may be lost
// at a reboot. Others can write there too.
std::string CachePath(const std::string& name);

// The same; makes the folder.
std::string CacheFile(const std::string& name);

}  // namespace orvo::transcoder
