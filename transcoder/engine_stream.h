// A stream of bytes whose pictures a video engine encodes, and which software can go on with.
//
// FFmpeg writes packets into a pipe, and this process puts them into the container: so the stream
// stays one stream when another FFmpeg takes over in the middle.
#pragma once

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "transcoder/film_copy.h"

namespace orvo::transcoder {

struct StreamPlan {
  std::vector<std::string> command;  // writes a NUT stream, kStreamDelay late; key frames carry
                                     // their parameter sets
  CopyFormat format;
  double start = 0;  // in the film, in seconds: what comes before is dropped
};

// Asked after a failure: what makes the same stream in software from this second of the film on.
// Nothing if no more software may run.
using Replacement = std::function<std::optional<StreamPlan>(double start)>;

// Writes the stream into `output`. Returns the exit code: 0 at the film's end, kExitNoSeat if there
// was no replacement. A stream that ends early does not get its container's end.
int RunEngineStream(const StreamPlan& plan, int output, const Replacement& replace);

}  // namespace orvo::transcoder
