// The film that a command line names.
#pragma once

#include <string>

#include "metadata/video_metadata.h"
#include "util/paths.h"

namespace mirevo {

using orvo::RealPath;

// Probes the film. Returns kOk, or another exit code after a complaint if the file is not a film.
int LoadFilm(const std::string& path, LibOrvoQMX::VideoMetaData& film);

// Complains that the file or folder does not exist, and returns the exit code for that.
int NoSuchPath(const std::string& path);

}  // namespace mirevo
