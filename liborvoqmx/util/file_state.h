// Has a file changed since?
#pragma once

#include <optional>
#include <string>

#include "platform/export.h"

namespace orvo {

// What identifies the content of a plain file without reading it.
struct ORVO_API FileState {
  // "size modification-time change-time inode device", times in seconds with nanoseconds.
  std::string text;
  // Nothing touched the file in the last seconds. Two changes within one tick of the file system's
  // clock look alike, so only a settled file can be told from what it becomes.
  bool isSettled = false;

  // Nothing when there is no plain file at `path`.
  static std::optional<FileState> Of(const std::string& path);
};

}  // namespace orvo
