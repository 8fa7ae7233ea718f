// Processes that end up as this one's children, wanted or not.
#pragma once

#include "platform/export.h"

namespace orvo {

// From now on every orphan below this process becomes its child instead of init's.
ORVO_API void AdoptOrphans();

// Reaps the children that have ended, those of a Process included: it is not told how.
ORVO_API void ReapChildren();

// Waits until no child is left. Those that are still there after `milliseconds` are killed.
ORVO_API void WaitForChildren(int milliseconds);

}  // namespace orvo
