// The process that cleans up after a request, however the request ends.
#pragma once

#include <functional>

namespace webapi {

// Starts a detached process that waits for the end of the calling process and then runs
// `afterwards`. A request that is killed therefore leaves nothing behind. Returns false if the
// process cannot be started.
bool WatchOverMe(const std::function<void()>& afterwards);

}  // namespace webapi
