// The conversion service: works on the films in the queue, one after the other.
#pragma once

namespace convert {

// Converts until SIGINT, SIGTERM or SIGHUP. SIGUSR1 asks it to give way to a viewer. Returns the
// exit status: 0 after a signal, 1 with a reason on standard error if it cannot work.
int Serve();

}  // namespace convert
