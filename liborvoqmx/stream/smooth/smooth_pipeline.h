// The transcoder of a Smooth Streaming stream under its monitor. A process is the monitor of one
// stream at most.
#pragma once

#include <functional>

namespace LibOrvoQMX {

// Before a monitor begins.
void ResetSmoothPipeline();

// Runs a transcoder until it ends, a signal comes or the client stays away. `become` makes a child
// the transcoder, and returns only on failure.
void RunSmoothPipeline(const std::function<void()>& become,
                       const std::function<bool()>& isAbandoned);

// Stops what runs: SIGINT, and SIGKILL four seconds later.
void StopSmoothPipeline();

// The monitor is to end.
void OnSmoothStopSignal(int signal);

}  // namespace LibOrvoQMX
