// The cache of pictures and facts of films (util/film_cache.h), with the size that the owner set.
#pragma once

#include <string>
#include <string_view>

namespace webapi {

// Stores a file, and removes the oldest files if the cache is too large. Returns false if the file
// cannot be written.
bool KeepInCache(const std::string& path, std::string_view content);

}  // namespace webapi
