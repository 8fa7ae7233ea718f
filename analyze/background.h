// Analyzes the films of a library in the background while the service runs.
#pragma once

#include <string>
#include <vector>

namespace orvo::analyze {

// The state of the running analysis, below the system root: JSON with "waiting" (number of films),
// "analyzed" and "failed" (since the start), and "film", the path of the film in work, if any.
inline constexpr char kStateFile[] = "/run/mirevo/analysis";

// Analyzes the films in `roots` and those that are added or changed, one at a time, at idle
// priority. Returns only if the folders cannot be watched. A signal ends it.
int AnalyzeInBackground(const std::vector<std::string>& roots);

}  // namespace orvo::analyze
