// Folders of files that could be made again: what was learnt from films. Nothing in them is missed
// when it is deleted.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <string>
#include <string_view>

#include "platform/export.h"

namespace orvo {

// Writes a file of such a folder, which must exist, aside and renames it. If the folder then takes
// up more than `maxBytes`, its oldest files are removed. False when the file cannot be written.
ORVO_API bool KeepFile(const std::string& path, std::string_view content, mode_t mode,
                       int64_t maxBytes);

// Removes the oldest files of a folder until the rest takes up `maxBytes` at most. Folders, links
// and files whose names begin with a dot (locks) stay.
ORVO_API void TrimFolder(const std::string& folder, int64_t maxBytes);

}  // namespace orvo
