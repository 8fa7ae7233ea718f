// Watches a library in the background while the service runs: remembers its folders, and analyzes
// its films.
#pragma once

#include <string>
#include <vector>

namespace orvo::analyze {

// The state of the running analysis, below the system root: JSON with "waiting" (number of films),
// "analyzed" and "failed" (since the start), and "film", the path of the film in work, if any.
inline constexpr char kStateFile[] = "/run/mirevo/analysis";

// Keeps the catalog of the folders in `roots` (catalog/catalog.h). With `findsKeyframes`, also
// analyzes the films there and those that are added or changed, one at a time, at idle priority.
// Returns only if the folders cannot be watched. A signal ends it.
int WatchInBackground(const std::vector<std::string>& roots, bool findsKeyframes);

}  // namespace orvo::analyze
