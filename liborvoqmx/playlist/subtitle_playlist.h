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

// The address of the subtitle segments with a placeholder for the track; "" when the options lack
// what it needs. `quote` stands around the placeholder.
std::string SubtitleAddress(const Json::Value& options, const std::string& quote);

// The playlist that lists the video at `url` and the subtitles. `quote` stands around their ids.
void WriteIndexPlaylist(std::ostream& index, const std::string& url, const std::string& quote,
                        const SubtitleList& subtitles);

// The template with the track `id` in the place of the placeholder.
void WriteTrackPlaylist(std::ostream& playlist, std::istream& templateFile, const std::string& id);

}  // namespace LibOrvoQMX
