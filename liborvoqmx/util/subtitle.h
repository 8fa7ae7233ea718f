// Subtitle files beside a film and subtitle tracks in it.
#pragma once

#include <json/value.h>

#include <string>

#include "platform/export.h"

namespace libmrv::subtitle {

// The parts of a path: "dirname", "basename", "filename" and "extension" (around the last "."), and
// "language", the part between the last two dots; "" for a part that is not there.
ORVO_API Json::Value PathInfo(const std::string& path);

// Appends the paths of the subtitle files of the film `path` (SRT, SSA, ASS, SMI, named after it)
// to the array `files`, as root. 0, or -1 for an empty path. Changes the working directory to the
// film's.
ORVO_API int GetExternalSubtitle(const std::string& path, Json::Value& files);
// The same with the ids that the process has.
ORVO_API int GetExternalSubtitleImp(const std::string& path, Json::Value& files);

// May a container of this name carry subtitles to be shown?
ORVO_API bool IsAllowEmbaddedSubtitleContiner(const std::string& container);
// Are the subtitles of this codec text?
ORVO_API bool IsTextBaseSubtitleCodec(const std::string& codec);

}  // namespace libmrv::subtitle
