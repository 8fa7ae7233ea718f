// Notices that an owner has changed the media folders.
#pragma once

#include "platform/unique_fd.h"

namespace serve {

class FolderWatch {
 public:
  // Watches from now on. Without a watch (the kernel has too many) changes count at the next start.
  FolderWatch();

  // Readable after a change of the settings; -1 without a watch.
  int Descriptor() const { return changes_.Get(); }

  // Have the media folders been replaced since the last call? Does not wait.
  bool HasChanged();

 private:
  orvo::UniqueFd changes_;
};

}  // namespace serve
