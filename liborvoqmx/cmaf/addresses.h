// The addresses in the playlists of a presentation. FFmpeg judges an address by the ending of its
// path, so each one has a file name.
#pragma once

#include <string>

#include "cmaf/presentation.h"
#include "platform/export.h"

namespace LibOrvoQMX {

// The beginning of a segment's address; the segment's number follows.
ORVO_API std::string SegmentAddress(const CmafPresentation& presentation,
                                    const std::string& rendition);
ORVO_API std::string HeaderAddress(const CmafPresentation& presentation,
                                   const std::string& rendition);
ORVO_API std::string MediaPlaylistAddress(const CmafPresentation& presentation,
                                          const std::string& rendition);
std::string ChapterListAddress(const CmafPresentation& presentation);
std::string SubtitlePlaylistAddress(const CmafPresentation& presentation, const std::string& id);
// The whole track as WebVTT.
std::string SubtitleAddress(const CmafPresentation& presentation, const std::string& id);

}  // namespace LibOrvoQMX
