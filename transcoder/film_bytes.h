// The bytes of a film, for looks that need no demuxer.
#pragma once

#include <sys/types.h>

#include <cstddef>
#include <string>

#include "platform/media_file.h"

namespace orvo::transcoder {

class FilmBytes {
 public:
  // What is no readable plain file is empty.
  explicit FilmBytes(const std::string& path);

  off_t Size() const { return file_.Status().st_size; }

  // At most `count` bytes from `position` on; fewer at the end of the film, none behind it or after
  // an error.
  std::string At(off_t position, size_t count) const;

 private:
  MediaFile file_;
};

}  // namespace orvo::transcoder
