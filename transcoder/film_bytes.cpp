#include "transcoder/film_bytes.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace orvo::transcoder {

FilmBytes::FilmBytes(const std::string& path)
    : file_(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY)) {
  struct stat status {};
  if (file_.IsOpen() && fstat(file_.Get(), &status) == 0 && S_ISREG(status.st_mode)) {
    size_ = status.st_size;
  }
}

std::string FilmBytes::At(off_t position, size_t count) const {
  if (position < 0 || position >= size_) {
    return "";
  }
  std::string bytes(count, '\0');
  const ssize_t length = pread(file_.Get(), bytes.data(), bytes.size(), position);
  bytes.resize(length > 0 ? static_cast<size_t>(length) : 0);
  return bytes;
}

}  // namespace orvo::transcoder
