// A process that analyzes one film. What a film does to FFmpeg's libraries stays in a confined one
// below it.
#pragma once

#include <string>

#include "platform/process.h"

namespace orvo::analyze {

// Starts it. It dies with this process. No process when there can be none. Its exit status: 0: the
// result is stored. 1: there is none. What is wrong with the film itself is recorded.
Process StartWorker(const std::string& film);

}  // namespace orvo::analyze
