// The elements of a Matroska file, read from the open film without FFmpeg. Whatever the film says,
// a reader stays within it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>

#include "platform/export.h"
#include "platform/media_file.h"

namespace LibOrvoQMX {

struct MatroskaElement {
  uint32_t id = 0;
  int64_t begin = 0;
  int64_t body = 0;
  int64_t end = 0;

  int64_t Size() const { return end - body; }
};

// At most so many bytes of the film from this position; fewer at its end.
ORVO_API std::string BytesAt(const orvo::MediaFile& film, int64_t position, size_t count);

// Nothing if there is no whole element.
ORVO_API std::optional<MatroskaElement> ElementAt(const orvo::MediaFile& film, int64_t position);
// The same for an element that may be cut off or of unknown length. It ends with the film then.
ORVO_API std::optional<MatroskaElement> OpenElementAt(const orvo::MediaFile& film,
                                                      int64_t position);

// The header of an element without meaning that takes the same bytes.
ORVO_API std::string VoidHeader(const MatroskaElement& element);

// Calls `take` for each element within another one, while it returns true and `budget`, which
// counts the elements, lasts.
template <typename Take>
void ForEachWithin(const orvo::MediaFile& film, const MatroskaElement& parent, int& budget,
                   Take take) {
  for (int64_t position = parent.body; position < parent.end && --budget > 0;) {
    const auto element = ElementAt(film, position);
    if (!element || !take(*element)) {
      return;
    }
    position = element->end;
  }
}

}  // namespace LibOrvoQMX
