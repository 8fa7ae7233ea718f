// The previews of a film: small pictures from all over it in one JPEG, for a player's seek bar.
//
// The analysis makes them in the background and the web API sends them. The layout of the pictures
// stands in a comment of the JPEG. An empty file tells that a film gives none.
#pragma once

#include <optional>
#include <string>

#include "platform/export.h"
#include "platform/media_file.h"

namespace orvo {

struct PreviewLayout {
  int width = 0;       // of one picture, in pixels
  int height = 0;      // the same
  int columns = 0;     // pictures in a row, from left to right; the rows go downwards
  int count = 0;       // pictures
  double seconds = 0;  // the part of the film that one picture stands for
};

// The path of the previews for the film's current state.
ORVO_API std::string PreviewsPath(const MediaFile& film);

// Have this film's previews been made, or has it been found that it gives none?
ORVO_API bool HavePreviews(const MediaFile& film);

// May more previews be stored? They may take the place of others that were not used for long, so
// that a large library is not made over and over again.
ORVO_API bool IsRoomForPreviews();

// Stores a JPEG with its layout; an empty one for a film that gives none. Returns false if it
// cannot be written.
ORVO_API bool KeepPreviews(const MediaFile& film, const std::string& jpeg,
                           const PreviewLayout& layout);

// The layout of the film's previews, which count as used now. Nothing if there are none.
ORVO_API std::optional<PreviewLayout> UsePreviews(const MediaFile& film);

}  // namespace orvo
