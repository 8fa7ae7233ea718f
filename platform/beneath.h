// Finding a file below a folder whose content others may change at any moment.
#pragma once

#include <string_view>

#include "platform/export.h"
#include "platform/unique_fd.h"

namespace orvo {

// Finds `path` below the open folder `root` and opens it with O_PATH, which waits for nothing and
// reads nothing. No part of the path may be a link, "." or "..", so the result is below `root`
// whatever is renamed or linked meanwhile. Not open, with errno set, if there is no such file;
// errno is ELOOP for a link.
ORVO_API UniqueFd FindBeneath(const UniqueFd& root, std::string_view path);

// The same, part by part, for kernels without openat2 (before Linux 5.6).
ORVO_API UniqueFd WalkBeneath(const UniqueFd& root, std::string_view path);

}  // namespace orvo
