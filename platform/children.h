// Processes that end up as this one's children, wanted or not.
#pragma once

#include "platform/export.h"

namespace orvo {

// From now on every orphan below this process becomes its child instead of init's.
ORVO_API void AdoptOrphans();

// Reaps the children that have ended, those of a Process included: it is not told how.
ORVO_API void ReapChildren();

// Continues every stopped process below this one. A process that a debugger has stopped is left
// alone.
ORVO_API void ContinueDescendants();

// Asks all children to end with SIGTERM, those included that become children meanwhile, and waits
// until none is left. After `milliseconds` it kills all that are still there.
ORVO_API void EndChildren(int milliseconds);

}  // namespace orvo
