// The media folders as pages with links, as simple web servers show folders. Media centers and
// programs that copy files read such pages (docs/files.md).
#pragma once

#include "webapi/http/answer.h"
#include "webapi/http/request.h"

namespace webapi {

// The path of the index.
inline constexpr char kIndexProgram[] = "/files";

// Sends what the address leads to: the list of the media folders, a folder's page, or a file, with
// ranges. Shows films, music, and the subtitles, pictures and notes that lie beside them. Nothing
// hidden and no folder of the system is there, and nothing outside the media folders.
Answer SendIndex(const Request& request);

}  // namespace webapi
