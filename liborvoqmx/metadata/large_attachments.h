// Hides the attachments of a Matroska film from FFmpeg if they are large.
//
// Films with subtitles in far scripts carry hundreds of megabytes of fonts. FFmpeg reads all of
// them when it opens a film, and keeps each three times, which is more memory than a probe may
// have. The tracks of a film do not depend on them, apart from pictures: those are covers, and
// stay.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "platform/export.h"
#include "platform/media_file.h"

namespace LibOrvoQMX {

class ORVO_API LargeAttachments {
 public:
  // The film outlives this object.
  explicit LargeAttachments(const orvo::MediaFile& film) : film_(film) {}

  // Changes bytes that were read from this position of the film, so that each hidden attachment is
  // an element without meaning. The lengths stay as they are.
  void Hide(int64_t position, uint8_t* bytes, size_t count);

 private:
  struct Replacement {
    int64_t position;
    std::string bytes;
  };
  void LookFor(int64_t position, const uint8_t* bytes, size_t count);
  void LookInto(int64_t position);

  const orvo::MediaFile& film_;
  int64_t seen_ = -1;  // the last list of attachments
  std::vector<Replacement> replacements_;
};

}  // namespace LibOrvoQMX
