// The subtitles of DVDs (VobSub): packets with small pictures of four colours, and the text that
// tells the size and the colours of the film.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "platform/media_file.h"
#include "webapi/subtitles/sup_file.h"

namespace webapi {

struct DvdScreen {
  int width = 720;
  int height = 576;
  std::array<uint32_t, 16> palette = {};  // 0xRRGGBB
};

// Reads "size: 720x576" and "palette: 000000, ff0000, ..." of an .idx file or a track. What is
// missing or wrong stays as it is above.
DvdScreen ReadDvdScreen(std::string_view text);

// The picture in a packet that begins at `time` (ms). Nothing if the packet shows none. A picture
// without an end is shown for five seconds.
std::optional<SubtitlePicture> ReadDvdPicture(std::string_view packet, int64_t time,
                                              const DvdScreen& screen);

// The pictures of a Matroska file with one such track as a SUP file: as many of them as fit into
// about `largest` bytes.
std::string ReadDvdTrack(const orvo::MediaFile& track, size_t largest);

}  // namespace webapi
