// Reports the state to the service manager that started this process. Without one, does nothing.
#pragma once

#include <chrono>
#include <string>

namespace serve {

// Tells a waiting service manager that the service now answers. `status` is one line for people.
void AnnounceReadiness(const std::string& status);
// Tells it that the service works.
void AnnounceLife();
// Tells it that the service ends.
void AnnounceStop();

// The time without AnnounceLife after which the manager ends this process; 0 for no limit.
std::chrono::milliseconds WatchdogTime();

}  // namespace serve
