// The transcoders of viewers, and when a conversion may work beside them.
#pragma once

#include <chrono>
#include <functional>
#include <optional>
#include <vector>

#include "platform/unique_fd.h"

namespace convert {

using Clock = std::chrono::steady_clock;

// The running transcoders in the register that are not conversions. Only reads the register.
class LiveTranscoders {
 public:
  LiveTranscoders();

  // Reads the register again.
  void Look();
  bool Any() const { return !processes_.empty(); }

  // Becomes readable when the register may have changed.
  int Changes() const { return changes_.Get(); }
  // One for each transcoder; becomes readable at its end.
  const std::vector<orvo::UniqueFd>& Processes() const { return processes_; }

 private:
  orvo::UniqueFd changes_;
  std::vector<orvo::UniqueFd> processes_;
};

// Enters a conversion's process in the register. `start` starts or continues it and returns its
// number, or a negative one; it is called while the register is locked, and not at all if there is
// no room or a live transcoder. Returns true if the process is entered.
bool EnterConversion(const std::function<int()>& start);
// Removes its entry.
void RemoveConversion(int pid);

// Who has the right of way: after a viewer has asked for it, conversions wait until the viewers'
// transcoders have ended, or until the viewer has not come.
class RightOfWay {
 public:
  // A viewer needs the machine.
  void Yield(Clock::time_point now);

  // May conversions run? `isLive`: viewers' transcoders run.
  bool MayRun(Clock::time_point now, bool isLive);

  // When the answer changes by itself; nothing if only other processes can change it.
  std::optional<Clock::time_point> NextChange() const { return until_; }

 private:
  std::optional<Clock::time_point> asked_;
  std::optional<Clock::time_point> until_;
  bool hasCome_ = false;
};

}  // namespace convert
