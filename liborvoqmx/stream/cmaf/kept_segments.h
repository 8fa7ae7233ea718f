// Bounds what is kept of a CMAF stream. A segment that is removed is made again when a player asks
// for it.
#pragma once

#include <cstdint>
#include <string>

#include "platform/export.h"

namespace LibOrvoQMX {

// The bound for each stream in bytes, from the environment.
uint64_t KeptCmafBytes();

// Removes complete segments, the oldest ones first, until all renditions together take at most
// `bytes`. Segments stay that are younger than a minute, or near one that a player has requested;
// so more than `bytes` may be left.
ORVO_API void KeepCmafWithin(const std::string& streamId, uint64_t bytes);

}  // namespace LibOrvoQMX
