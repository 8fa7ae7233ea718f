// A process that analyzes one film. What a film does to FFmpeg's libraries stays in a confined one
// below it.
#pragma once

#include <string>

#include "platform/process.h"

namespace orvo::analyze {

// Starts the worker, which ends with this process. Returns no process on failure. The exit status
// is 0 if the result is stored, else 1. The worker records errors of the film itself.
Process StartWorker(const std::string& film);

// The same for a process that makes the previews of a film.
Process StartPreviewer(const std::string& film);

}  // namespace orvo::analyze
