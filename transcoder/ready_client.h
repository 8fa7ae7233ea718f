// A run of FFmpeg's program by the service's ready FFmpeg.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "transcoder/worker.h"

namespace orvo::transcoder {

// Runs `command`, which is stock FFmpeg's, with `output` as its standard output; it has this
// process's other descriptors that an exec keeps. Null if this service has no ready FFmpeg, none
// that answers at once, or the command needs what only a process of its own has: devices, another
// priority, names of files that depend on the current folder. What came into the output by then is
// worth nothing.
std::unique_ptr<Worker> AskForFFmpeg(const std::vector<std::string>& command, int output);

// The same for a command that writes to its own descriptor, "pipe:N".
std::unique_ptr<Worker> AskForFFmpeg(const std::vector<std::string>& command);

}  // namespace orvo::transcoder
