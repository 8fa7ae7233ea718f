// Tells whether a file has changed.
#pragma once

#include <optional>
#include <string>

#include "platform/export.h"

namespace orvo {

// Identifies the content of a plain file, or the names in a folder, without reading them.
struct ORVO_API FileState {
  // "size modification-time change-time inode device", times in seconds with nanoseconds.
  std::string text;
  // True if nothing has changed the file or folder in the last seconds. Two changes within one tick
  // of the file system's clock give the same times, so a later change is certain to show only for a
  // settled file.
  bool isSettled = false;

  // Returns nothing if there is no plain file at `path`.
  static std::optional<FileState> Of(const std::string& path);
  // Returns nothing if there is no folder at `path`.
  static std::optional<FileState> OfFolder(const std::string& path);
};

}  // namespace orvo
