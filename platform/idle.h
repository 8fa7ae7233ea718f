// The lowest priority.
#pragma once

#include "platform/export.h"

namespace orvo {

// Lowers the calling process's priority for processor and disk, so that other processes do not wait
// for it. Its children inherit this.
ORVO_API void BecomeIdle();

}  // namespace orvo
