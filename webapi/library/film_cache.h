// The cache of pictures and facts of films, below "/var/packages/Mirevo/cache".
//
// A file's name is a checksum of everything that its content depends on: the film's path, size and
// modification time, and the request. A changed film gets new names; the old files are removed when
// they are the oldest. Anyone may delete any file here.
#pragma once

#include <cstdint>
#include <string>

#include "platform/media_file.h"

#include "util/system_files.h"

namespace webapi {

using LibOrvoQMX::kCacheFolder;

// The path of the cached `what` for the film's current state. `ending` includes its dot. "" if
// there is no such film.
std::string CachePath(const orvo::MediaFile& film, const std::string& what,
                      const std::string& ending);

// Stores a file, and removes the oldest files if the cache is too large. Returns false if the file
// cannot be written.
bool KeepInCache(const std::string& path, const std::string& content);

// The size of all facts and pictures in the cache, in bytes.
int64_t CacheBytes();

// Removes them. They are made again when somebody wants to see them.
void EmptyCache();

}  // namespace webapi
