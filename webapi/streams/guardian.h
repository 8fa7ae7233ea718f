// The process that cleans up behind a request, however that request ends.
#pragma once

#include <functional>

namespace webapi {

// Starts a detached process that waits for the end of the calling process and then runs
// `afterwards`. A request that is killed with its client, or killed outright, so leaves nothing
// behind. False when it could not be started.
bool WatchOverMe(const std::function<void()>& afterwards);

}  // namespace webapi
