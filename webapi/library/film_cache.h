// What is made from films and kept: pictures and small facts, below "/var/packages/Mirevo/cache".
//
// A file's name is the checksum of all that its content depends on: the film's path, size and
// modification time, and what was asked for. A film that changes has new names; the old ones go as
// the oldest do. Nothing here is missed when it is deleted.
#pragma once

#include <string>

#include "util/system_files.h"

namespace webapi {

using LibOrvoQMX::kCacheFolder;

// Where `what` of a film is kept, for the state that the film is in now; `ending` with its dot. ""
// when there is no such film.
std::string CachePath(const std::string& film, const std::string& what, const std::string& ending);

// Keeps a file, and removes the oldest ones where that is too much. False when it cannot be
// written.
bool KeepInCache(const std::string& path, const std::string& content);

}  // namespace webapi
