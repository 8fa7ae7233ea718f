#include "transcoder/file_identity.h"

#include <sys/stat.h>

#include <cstdint>

namespace orvo::transcoder {

std::string FileIdentity(const std::string& path) {
  struct stat status {};
  if (stat(path.c_str(), &status) != 0) {
    return "";
  }
  const int64_t nanoseconds = status.st_mtim.tv_sec * INT64_C(1000000000) + status.st_mtim.tv_nsec;
  return std::to_string(status.st_size) + " " + std::to_string(nanoseconds);
}

}  // namespace orvo::transcoder
