// Absolute paths without links.
#pragma once

#include <climits>
#include <cstdlib>
#include <string>

namespace orvo {

// The absolute path with links resolved; "" if there is no such file or folder, with the reason in
// errno.
inline std::string RealPath(const std::string& path) {
  char resolved[PATH_MAX];
  return realpath(path.c_str(), resolved) != nullptr ? resolved : "";
}

// Is it the folder, or anything below it? Both are real paths.
inline bool LiesWithin(const std::string& path, const std::string& folder) {
  return path == folder || folder == "/" || path.starts_with(folder + "/");
}

}  // namespace orvo
