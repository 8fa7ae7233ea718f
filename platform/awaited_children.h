// How children ended, also in a program that ignores them.
#pragma once

#include <mutex>

namespace orvo {

// Taken by whoever forks, from before the fork until the child has executed its program or begun
// its work: no other child of this process can keep a copy of the pipe that tells that. The child
// of a fork owns it, too, and unlocks it where it goes on.
std::mutex& LaunchLock();

// A program that ignores SIGCHLD has its children reaped before anyone can ask how they ended.
// Between these calls, which nest, they wait to be asked. The caller holds the lock.
void HoldChildren(const std::unique_lock<std::mutex>& lock);
void LetGoOfChildren(const std::unique_lock<std::mutex>& lock);

// In a forked child, which has no children that were held. Async-signal-safe.
void LetGoOfParentsChildren(const std::unique_lock<std::mutex>& lock);

}  // namespace orvo
