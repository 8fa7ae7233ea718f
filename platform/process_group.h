// Processes that belong together.
#pragma once

#include <sys/types.h>

#include "platform/export.h"

namespace orvo {

// Sends a signal to all processes of the group that this process leads (ProcessGroup::kOwn). The
// caller has not reaped the leader yet. Returns false, with errno set, if it cannot be sent.
ORVO_API bool SignalGroup(pid_t leader, int signal);

}  // namespace orvo
