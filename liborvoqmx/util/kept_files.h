// Folders of stored results about films. The name of a result is a checksum with an ending. It can
// be made again, so anyone may delete it. Files with other names are not results.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <ctime>
#include <string>
#include <string_view>

#include "platform/export.h"

namespace orvo {

// Writes a file of such a folder under another name and renames it. The folder must exist. If the
// folder then takes up more than `maxBytes`, removes its oldest files. Returns false if the file
// cannot be written.
ORVO_API bool KeepFile(const std::string& path, std::string_view content, mode_t mode,
                       int64_t maxBytes);

// How much room the results in a folder take up that were changed at this time or later.
ORVO_API int64_t BytesNewerThan(const std::string& folder, time_t time);

// Removes the oldest results of a folder until the rest takes up at most `maxBytes`. All else in it
// stays.
ORVO_API void TrimFolder(const std::string& folder, int64_t maxBytes);

}  // namespace orvo
