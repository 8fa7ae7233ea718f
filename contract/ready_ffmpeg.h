// The process that is FFmpeg's program with its libraries loaded, and forks for the runs of a
// service's transcoders.
#pragma once

namespace orvo {

// The transcoder program with this option alone becomes that process.
inline constexpr char kReadyOption[] = "--ready";

// Where it listens, below the system root.
inline constexpr char kReadySocket[] = "/tmp/Mirevo/ffmpeg";

}  // namespace orvo
