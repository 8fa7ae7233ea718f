// Starts a monitor: a detached process that runs and watches a stream's transcoder and outlives the
// request that started it.
#pragma once

#include <functional>

#include "platform/export.h"

namespace LibOrvoQMX {

// A stream without a request for this time has lost its client.
inline constexpr unsigned long kIdleSeconds = 900;

// Starts a detached process that handles SIGINT and SIGTERM with `handler` and calls `record`. If
// `record` returns true, the process calls `watch`; then it ends. An exception ends it too.
// StartMonitor returns when `record` has returned, so a later check whether the stream has a
// monitor is correct. Returns false if the process cannot be started.
ORVO_API bool StartMonitor(void (*handler)(int), const std::function<bool()>& record,
                           const std::function<void()>& watch);

}  // namespace LibOrvoQMX
