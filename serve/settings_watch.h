// Notices that an owner has changed what the background programs work for.
#pragma once

#include "platform/unique_fd.h"

namespace serve {

class SettingsWatch {
 public:
  struct Changes {
    bool folders = false;      // the media folders
    bool televisions = false;  // what televisions see
  };

  // Watches from now on. Without a watch (the kernel has too many) changes count at the next start.
  SettingsWatch();

  // Readable after a change of the settings; -1 without a watch.
  int Descriptor() const { return changes_.Get(); }

  // What has been replaced since the last call. Does not wait.
  Changes Take();

 private:
  orvo::UniqueFd changes_;
};

}  // namespace serve
