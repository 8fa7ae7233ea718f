// The film that a command line names.
#pragma once

#include <string>

#include "metadata/video_metadata.h"

namespace mirevo {

// The absolute path with links resolved; "" when there is no such file or folder.
std::string RealPath(const std::string& path);

// Probes the film. An exit code: not kOk, with a complaint, where there is none.
int LoadFilm(const std::string& path, LibOrvoQMX::VideoMetaData& film);

// Complains that there is no such file or folder; the exit code for that.
int NoSuchPath(const std::string& path);

}  // namespace mirevo
