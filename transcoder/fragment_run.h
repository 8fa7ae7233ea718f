// A run of FFmpeg whose output becomes fragments.
#pragma once

#include <string>
#include <vector>

#include "transcoder/fragment_cutter.h"

namespace orvo::transcoder {

// Runs `command`, which writes a NUT stream to its standard output, kStreamDelay late, and makes
// fragments of it until it ends. As with RunSegments(), this process stays. A fragment appears when
// it is complete; one that is cut short by a signal or by a failure never does. Returns as
// RunSegments().
int RunFragments(const std::vector<std::string>& command, const FragmentPlan& plan);

}  // namespace orvo::transcoder
