// Reports the state to the service manager.
#pragma once

#include <string>

namespace serve {

// Tells a waiting service manager that the service now answers. `status` is one line for people.
void AnnounceReadiness(const std::string& status);

}  // namespace serve
