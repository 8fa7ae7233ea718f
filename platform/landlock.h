// Landlock: a process names the files that it wants to reach, and reaches no others from then on.
#pragma once

#include <cstdint>
#include <string>

#include "platform/export.h"
#include "platform/unique_fd.h"

namespace orvo {

// The version of Landlock that this kernel has; 0 for none.
ORVO_API int LandlockVersion();

enum class Network { kRefused, kOpen };

// What a process may reach. Made before a fork, applied in the child.
class ORVO_API LandlockRules {
 public:
  // No file may be reached yet. Not open, with errno set, when there is no Landlock.
  explicit LandlockRules(Network network = Network::kRefused);

  bool IsOpen() const { return rules_.IsOpen(); }

  // Allows to read a file, or all files below a folder. A path that is not there is left out.
  // False, with errno set, on failure.
  bool AllowReading(const std::string& path);
  // The same for an open file, whatever its name is now.
  bool AllowReading(int file);
  // The same, and to change, make and remove files there.
  bool AllowWriting(const std::string& path);
  // Allows to remove empty folders below this one.
  bool AllowRemovingFolders(const std::string& path);
  // Allows to execute this file and to read it.
  bool AllowExecution(const std::string& path);
  // Allows to read and write a device and to make its own calls.
  bool AllowDevice(const std::string& path);

  // In the process that is to be confined, async-signal-safe: adds its own folder in /proc and
  // gives up all the rest. Returns 0 or an errno.
  int Apply();

 private:
  bool Allow(const char* path, uint64_t rights);
  bool AllowOpen(int file, uint64_t rights);

  int version_ = 0;
  UniqueFd rules_;
};

}  // namespace orvo
