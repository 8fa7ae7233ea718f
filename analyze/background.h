// Analyzing what a library holds, in the background, as long as the service runs.
#pragma once

#include <string>
#include <vector>

namespace orvo::analyze {

// What the running analysis tells of itself, below the system root: JSON with "waiting" (films in
// line), "analyzed" and "failed" (since the start), and "film", the path of the one at work, if
// any.
inline constexpr char kStateFile[] = "/run/mirevo/analysis";

// Analyzes the films in `roots`, one at a time, and those that are added or changed, at idle
// priority. Returns only on failure: when the folders cannot be watched. A signal ends it.
int AnalyzeInBackground(const std::vector<std::string>& roots);

}  // namespace orvo::analyze
