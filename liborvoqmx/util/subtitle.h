// Subtitle files beside a film and subtitle tracks in it.
#pragma once

#include <json/value.h>

#include <string>

#include "platform/export.h"

namespace libmrv::subtitle {

// The parts of a path: "dirname", "basename", "filename" and "extension" (before and after the last
// "."), and "language", the part between the last two dots. A missing part is "".
ORVO_API Json::Value PathInfo(const std::string& path);

// As root, appends to the array `files` the paths of the film's subtitle files (SRT, SSA, ASS, SMI,
// named after the film `path`). Returns 0, or -1 for an empty path. Changes the working directory
// to the film's folder.
ORVO_API int GetExternalSubtitle(const std::string& path, Json::Value& files);
// The same with the process's own ids.
ORVO_API int GetExternalSubtitleImp(const std::string& path, Json::Value& files);

// Can subtitle tracks in a container with this name be shown?
ORVO_API bool IsAllowEmbaddedSubtitleContiner(const std::string& container);
// Does this subtitle codec contain text?
ORVO_API bool IsTextBaseSubtitleCodec(const std::string& codec);

}  // namespace libmrv::subtitle
