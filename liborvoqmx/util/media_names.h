// What a name in a media folder stands for.
#pragma once

#include <string>

#include "platform/export.h"

namespace orvo {

// Does a file of this name pass for a film? By its ending; a hidden file does not.
ORVO_API bool IsFilmName(const std::string& name);

// Does a folder of this name hold something else than a library: what hides, what systems keep for
// themselves ("@ea" and the like), what was deleted? A media root may have any name.
ORVO_API bool IsSystemFolderName(const std::string& name);

}  // namespace orvo
