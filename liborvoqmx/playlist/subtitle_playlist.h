// The playlists of subtitles: an index of the tracks, and one playlist for each track, which is a
// copy of a template.
#pragma once

#include <json/value.h>

#include <istream>
#include <ostream>
#include <string>
#include <utility>
#include <vector>

namespace LibOrvoQMX {

// Subtitle id and language of each track.
using SubtitleList = std::vector<std::pair<std::string, std::string>>;

// The address of the subtitle segments, with a placeholder for the track and `quote` around it. ""
// if an option that it needs is missing.
std::string SubtitleAddress(const Json::Value& options, const std::string& quote);

// Writes the playlist that lists the video at `url` and the subtitles, with `quote` around the
// subtitle ids.
void WriteIndexPlaylist(std::ostream& index, const std::string& url, const std::string& quote,
                        const SubtitleList& subtitles);

// Copies the template and replaces the placeholder by the track `id`.
void WriteTrackPlaylist(std::ostream& playlist, std::istream& templateFile, const std::string& id);

}  // namespace LibOrvoQMX
