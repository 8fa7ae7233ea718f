// Files beside a film.
#pragma once

#include <string>

#include "platform/media_file.h"

namespace webapi {

// Opens a file by its real path, below a media root or in the folder of the film: if the film
// itself is a root, the files beside it are outside every root. Not open if it is elsewhere.
orvo::MediaFile OpenBeside(const std::string& film, const std::string& path);

}  // namespace webapi
