// Bounds what is kept of a CMAF stream. A segment that is removed is made again when a player asks
// for it.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "platform/export.h"

namespace LibOrvoQMX {

// The bound for each stream in bytes, from the environment.
uint64_t KeptCmafBytes();

// Removes complete segments, the oldest ones first, until all renditions together take at most
// `bytes`. Segments stay that are younger than a minute, or near one that a player has requested;
// so more than `bytes` may be left.
ORVO_API void KeepCmafWithin(const std::string& streamId, uint64_t bytes);

// The same for as long as a run goes on. To look at all files takes time, so it looks only after
// the run has begun another segment.
class ORVO_API CmafKeeper {
 public:
  CmafKeeper(std::string streamId, uint64_t bytes);

  // `position`: the segment that the run is making.
  void Look(std::optional<int64_t> position);

 private:
  std::string streamId_;
  uint64_t bytes_;
  std::optional<int64_t> seen_;
};

}  // namespace LibOrvoQMX
