// Processes that end up as this one's children, wanted or not.
#pragma once

namespace serve {

// From now on every orphan below this process becomes its child instead of init's.
void AdoptOrphans();

// Reaps the children that have ended.
void ReapChildren();

// Waits until no child is left. Those that are still there after `milliseconds` are killed.
void WaitForChildren(int milliseconds);

}  // namespace serve
