// Whether a film is complete, or a process still writes it.
#pragma once

#include <chrono>
#include <string>

namespace catalog {

// A film that has changed may be looked at after this time without a change.
inline constexpr std::chrono::seconds kQuiet(2);

// The time until the next look at the film; 0 if no process writes it. The process must ignore
// SIGIO, which the kernel sends if a writer comes during the call.
std::chrono::seconds WaitForWriters(const std::string& film);

}  // namespace catalog
