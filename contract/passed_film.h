// How a transcoder gets its film.
#pragma once

namespace orvo {

// The environment variable with the number of the open film and, after a space, FFmpeg's name of
// its demuxer, which may be missing. The program reads this file instead of the one that its "-i"
// names: by the time that it starts, the name may lead to another file.
inline constexpr char kFilmVariable[] = "ORVO_FILM";

}  // namespace orvo
