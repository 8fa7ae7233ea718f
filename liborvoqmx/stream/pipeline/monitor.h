// Starting a monitor: the detached process that runs and watches a stream's transcoder and outlives
// the request that started it.
#pragma once

#include <functional>

#include "platform/export.h"

namespace LibOrvoQMX {

// A stream that no request has touched for so long has lost its client.
inline constexpr unsigned long kIdleSeconds = 900;

// Starts a detached process that handles SIGINT and SIGTERM with `handler`, calls `record` and,
// where that is true, `watch`, and ends; an exception ends it too. Returns once `record` came back,
// so that a request that asks next whether the stream has a monitor is told the truth. False when
// there is no such process.
ORVO_API bool StartMonitor(void (*handler)(int), const std::function<bool()>& record,
                           const std::function<void()>& watch);

}  // namespace LibOrvoQMX
