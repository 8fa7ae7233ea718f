// What the probe has learnt from films that have not changed since.
//
// One result is remembered within the process, so that one request probes a film once. Each is also
// kept in a file of the process's own user below "/var/packages/Mirevo/cache/probes", named after
// the film's path, for the requests that follow. A result counts for the state of the film in which
// it was probed, and for the FFmpeg and the library that probed it.
#pragma once

#include <json/value.h>

#include <string>

#include "platform/export.h"
#include "util/file_state.h"

namespace LibOrvoQMX {

// Copies what the probe wrote of the film at `path` into `document`, but for "path" and "filesize".
// False when nothing is kept of that state of it.
ORVO_API bool FindProbe(const std::string& path, const orvo::FileState& state,
                        Json::Value& document);

// Keeps what a probe wrote into `document`, which began when the film was in `state`. A film that
// has changed meanwhile or only just before is not kept. Failing to write a file is no failure.
ORVO_API void KeepProbe(const std::string& path, const orvo::FileState& state,
                        const Json::Value& document);

}  // namespace LibOrvoQMX
