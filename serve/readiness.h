// Telling the service manager how it goes.
#pragma once

#include <string>

namespace serve {

// Tells the manager that started this service, if one waits for it, that it answers now. `status`
// is one line for people.
void AnnounceReadiness(const std::string& status);

}  // namespace serve
