#include "transcoder/film_bytes.h"

#include <unistd.h>

namespace orvo::transcoder {

FilmBytes::FilmBytes(const std::string& path) : file_(MediaFile::Open(path)) {}

std::string FilmBytes::At(off_t position, size_t count) const {
  if (position < 0 || position >= Size()) {
    return "";
  }
  std::string bytes(count, '\0');
  const ssize_t length = pread(file_.Get(), bytes.data(), bytes.size(), position);
  bytes.resize(length > 0 ? static_cast<size_t>(length) : 0);
  return bytes;
}

}  // namespace orvo::transcoder
