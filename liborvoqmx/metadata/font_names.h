// The names by which subtitles with styles ask for a font.
//
// Reads fonts as TrueType and OpenType have them, also in collections. Fonts that are compressed
// tell none.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "platform/media_file.h"

namespace LibOrvoQMX {

// Where a name stands in the film, and how.
struct FontName {
  int64_t position = 0;
  int32_t size = 0;    // in bytes
  int32_t isWide = 0;  // UTF-16 with the higher byte first; otherwise one byte for each character
};

inline constexpr int32_t kLongestFontName = 255;

// The family, the full name and the PostScript name of the font in this part of a film, in every
// language that it has, at most `most` of them. For a confined process: the font may be damaged.
std::vector<FontName> FindFontNames(const orvo::MediaFile& film, int64_t begin, int64_t end,
                                    size_t most);

// The name as UTF-8, without characters that cannot be in one; "" if nothing is left.
std::string TextOf(const orvo::MediaFile& film, const FontName& name);

}  // namespace LibOrvoQMX
