// Fonts attached to a Matroska film, which its subtitles with styles are meant to be drawn with.
//
// Only their places in the film are looked for, in a confined process. So a font costs no memory,
// and nothing of it becomes a file.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "platform/export.h"
#include "platform/media_file.h"

namespace LibOrvoQMX {

struct AttachedFont {
  int id = 0;        // the number of the attachment among the film's streams, as FFmpeg counts them
  std::string name;  // as the film says, for people
  const char* type;  // the media type, by the font's first bytes
  int64_t position = 0;  // of its bytes in the film
  int64_t size = 0;
  std::vector<std::string> families = {};  // names by which scripts ask for it; none if unknown
};

// The part of a film that holds all its attachments, and the first bytes of an element without
// meaning of the same length.
struct AttachmentList {
  int64_t begin = 0;
  int64_t end = 0;
  std::string emptyStart;
};

inline constexpr int64_t kLargestFont = 32 << 20;
inline constexpr size_t kMostFonts = 256;

// The fonts of a film, at most kMostFonts. Attachments that are no fonts by their first bytes, and
// fonts larger than kLargestFont, are left out. None if the film is not Matroska or cannot be read.
// Nothing if they could not be looked for.
ORVO_API std::optional<std::vector<AttachedFont>> FindAttachedFonts(const orvo::MediaFile& film);

// The attachments of a film that are so large that FFmpeg would need much memory to open it; it
// keeps each of them several times. Nothing for other films.
ORVO_API std::optional<AttachmentList> FindLargeAttachments(const orvo::MediaFile& film);

}  // namespace LibOrvoQMX
