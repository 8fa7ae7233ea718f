// The meaning of names in a media folder.
#pragma once

#include <cstdint>
#include <string>

#include "platform/export.h"

namespace orvo {

// Is this the name of a film? The ending decides; a hidden file is no film.
ORVO_API bool IsFilmName(const std::string& name);

// Is this the name of a piece of music? The same rules.
ORVO_API bool IsMusicName(const std::string& name);

// Is this the name of a film or of a piece of music?
ORVO_API bool IsPlayableName(const std::string& name);

// Is this the name of a folder that is not part of the library: a hidden folder, a system's own
// folder ("@ea" and the like) or a folder of deleted files? A media root may have any name.
ORVO_API bool IsSystemFolderName(const std::string& name);

// A number for these rules, which changes with the names that they know. For files that remember
// what the rules decided.
ORVO_API uint32_t VersionOfNames();

}  // namespace orvo
