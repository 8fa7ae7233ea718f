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
  int startMilliseconds = 0;  // position in the film
  std::string audioId;        // "" for the default
  ArgumentList arguments;     // from the stream's profile
  std::string output;
};

// Options that only FFmpeg gets.
struct FfmpegRules {
  bool copyTimestamps = false;
  bool prefersHardwareDecoder = false;  // if it works for this film
  bool needsMapping = false;            // there is no command line for tracks that cannot be mapped
};
// Returns an empty list, with a log line, if a needed mapping is missing.
std::vector<std::string> FfmpegCommand(const TranscoderRun& run, const FfmpegRules& rules);

// Options that only the GStreamer wrapper gets.
struct WrapperRules {
  bool shiftTimestamps = false;
  std::string audioFormat;  // the client's choice
};
std::vector<std::string> WrapperCommand(const TranscoderRun& run, const WrapperRules& rules);

}  // namespace LibOrvoQMX
