// The whole command line of a transcoder, from its executable to its output.
#pragma once

#include <string>
#include <vector>

#include "metadata/qmxmetadata.h"
#include "stream/pipeline/argument_adjustment.h"

namespace LibOrvoQMX {

struct TranscoderRun {
  const QMXMetaData& record;
  std::string executable;
  int startMilliseconds = 0;  // in the film
  std::string audioId;        // "" for no wish
  ArgumentList arguments;     // of the stream's profile
  std::string output;
};

// What only FFmpeg is told.
struct FfmpegRules {
  bool copyTimestamps = false;
  bool prefersHardwareDecoder = false;  // where it works for this film
  bool needsMapping = false;            // a film whose tracks cannot be mapped has no command line
};
// Empty, with a log line, where a needed mapping is missing.
std::vector<std::string> FfmpegCommand(const TranscoderRun& run, const FfmpegRules& rules);

// What only the GStreamer wrapper is told.
struct WrapperRules {
  bool shiftTimestamps = false;
  std::string audioFormat;  // what the client asked for
};
std::vector<std::string> WrapperCommand(const TranscoderRun& run, const WrapperRules& rules);

}  // namespace LibOrvoQMX
