// A process as a value.
#pragma once

#include <sys/types.h>

#include "platform/export.h"
#include "platform/unique_fd.h"

namespace orvo {

// A descriptor that stands for the process and becomes readable when it has ended, reaped or not.
// Not open, with errno set, when there is no such process.
ORVO_API UniqueFd OpenProcess(pid_t pid);

}  // namespace orvo
