// The description of a CMAF presentation for players that need no playlist.
#pragma once

#include <json/value.h>

#include <string>
#include <vector>

#include "cmaf/presentation.h"

namespace webapi {

// { "timescale", "durations", "renditions" }: the lengths of the segments in ticks of the
// timescale, and for each rendition its name, its kind ("picture" or "sound"), its properties, and
// the addresses "header" and "segments"; a segment's number follows the latter.
Json::Value DescribeCmaf(const LibOrvoQMX::CmafPresentation& presentation);

// The renditions that a player begins with: of `names`, which have commas between them, those that
// exist; for a kind without one, the first pictures and the default sound.
std::vector<const LibOrvoQMX::CmafRendition*> FirstRenditions(
    const LibOrvoQMX::CmafPresentation& presentation, const std::string& names);

}  // namespace webapi
