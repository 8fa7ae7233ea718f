// The cache of what can be made of films, below "/var/packages/Mirevo/cache".
//
// A file's name is a checksum of everything that its content depends on: the film's path, size and
// modification time, and the request. A changed film gets new names; the old files are removed when
// they are the oldest. Anyone may delete any file here.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "platform/export.h"
#include "platform/media_file.h"

namespace orvo {

// The path of the cached `what` for the film's current state. `ending` includes its dot.
ORVO_API std::string CachePath(const MediaFile& film, const std::string& what,
                               const std::string& ending);

// Stores a file, and removes the oldest files of its folder if that is larger than `mostBytes`.
// Returns false if the file cannot be written.
ORVO_API bool KeepInCache(const std::string& path, std::string_view content, int64_t mostBytes);

// The size of all facts and pictures in the cache, in bytes; the folders in it do not count.
ORVO_API int64_t CacheBytes();

// Removes them. They are made again when somebody wants to see them.
ORVO_API void EmptyCache();

}  // namespace orvo
