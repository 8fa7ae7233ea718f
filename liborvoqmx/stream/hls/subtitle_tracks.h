// The subtitles that a film has.
#pragma once

#include <string>

#include "metadata/qmxmetadata.h"
#include "playlist/subtitle_playlist.h"

namespace LibOrvoQMX {

// The tracks that an id stands for: all tracks of the film for "all", none for "", else that one.
SubtitleList SubtitlesOf(const QMXMetaData& film, const std::string& subtitleId);

// The subtitle files beside the film, and the text tracks in it.
SubtitleList SubtitlesBeside(const QMXMetaData& film);
SubtitleList SubtitlesIn(const QMXMetaData& film);

}  // namespace LibOrvoQMX
