// The subtitles of a DVD beside a film (VobSub): NAME.idx with the times, NAME.sub with the
// pictures.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/media_file.h"

namespace webapi {

struct DvdSubtitles {
  orvo::MediaFile index;
  orvo::MediaFile pictures;
};

// Nothing unless the film with this real path has both files.
std::optional<DvdSubtitles> DvdSubtitlesBeside(const std::string& film);

// The languages of the tracks ("en"), in their order; "" for one without a name. At most 32.
std::vector<std::string> DvdLanguages(const orvo::MediaFile& index);

// The id of a track in the web API: the path of NAME.idx, "/" and the track's number. No file has
// such a path.
std::string DvdSubtitleId(const std::string& film, size_t track);

// The number of the track with this id; nothing for other ids.
std::optional<size_t> DvdTrackOf(const std::string& film, const std::string& id);

}  // namespace webapi
