// The transcoder that the monitor of a Smooth Streaming stream runs. A process is the monitor of at
// most one stream.
#pragma once

#include <functional>

namespace LibOrvoQMX {

// Resets the state of this process. Call it before a monitor begins.
void ResetSmoothPipeline();

// Runs a transcoder until it ends, a signal arrives or the client has gone. `become` replaces the
// child's image by the transcoder and returns only on failure.
void RunSmoothPipeline(const std::function<void()>& become,
                       const std::function<bool()>& isAbandoned);

// Stops the running transcoder with SIGINT, and with SIGKILL four seconds later.
void StopSmoothPipeline();

// The signal handler that tells the monitor to end.
void OnSmoothStopSignal(int signal);

}  // namespace LibOrvoQMX
