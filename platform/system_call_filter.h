// Which system calls a process that parses media may make.
#pragma once

#include <linux/filter.h>

#include <vector>

#include "platform/export.h"

namespace orvo {

// What the process still does after the filter has been installed, besides the media calls.
enum class Execution {
  kAllowed,  // executes a program
  kRefused,  // nothing
  kForks,    // accepts connections and starts confined copies of itself
};

// Whether the process may make pairs of local sockets. GStreamer's threads wake each other by them.
enum class SocketPairs { kAllowed, kRefused };

// A filter for InstallFilter. All calls that it does not know fail with EPERM: sockets, other
// processes, mounts, keys, identities and whatever the kernel gets later. New threads are allowed,
// new processes only as said above. A call of another architecture ends the process.
std::vector<sock_filter> MediaFilter(Execution execution, SocketPairs pairs);

// Async-signal-safe: gives up new privileges and installs the filter in the calling thread. Returns
// 0 or an errno.
ORVO_API int InstallFilter(const std::vector<sock_filter>& filter);

// Does this kernel have such filters?
bool HasSystemCallFilters();

}  // namespace orvo
