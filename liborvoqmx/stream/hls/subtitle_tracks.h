// The subtitles that a film has.
#pragma once

#include <string>

#include "metadata/qmxmetadata.h"
#include "playlist/subtitle_playlist.h"

namespace LibOrvoQMX {

// The tracks behind an id: every one of the film for "all", else that one; none for "".
SubtitleList SubtitlesOf(const QMXMetaData& film, const std::string& subtitleId);

// The files beside the film; the text tracks in it.
SubtitleList SubtitlesBeside(const QMXMetaData& film);
SubtitleList SubtitlesIn(const QMXMetaData& film);

}  // namespace LibOrvoQMX
