// Stored probe results of films that have not changed since they were probed.
//
// The process remembers the latest result in memory, so one request probes a film once. It also
// stores each result for later requests, in a file below "/var/packages/Mirevo/cache/probes" that
// its user owns. The film's path gives the file its name. A result is valid for one state of the
// film, one version of FFmpeg and one version of this library.
#pragma once

#include <json/value.h>

#include <string>

#include "platform/export.h"
#include "platform/media_file.h"
#include "util/file_state.h"

namespace LibOrvoQMX {

// Copies the stored result of the film at `path` into `document`, without "path" and "filesize".
// Returns false if no result of this state is stored.
ORVO_API bool FindProbe(const std::string& path, const orvo::FileState& state,
                        Json::Value& document);

// Stores the probe's result `document`. `state` is the film's state before the probe began. Does
// not store the result if the film changed during the probe or shortly before it. Ignores write
// errors.
ORVO_API void KeepProbe(const orvo::MediaFile& film, const orvo::FileState& state,
                        const Json::Value& document);

}  // namespace LibOrvoQMX
