// Asking another program.
#pragma once

#include <optional>
#include <string>
#include <vector>

namespace mirevo {

// What the program at the path command[0] writes to its standard output with these arguments.
// Nothing when it cannot be run, fails, or has not ended after `milliseconds`.
std::optional<std::string> OutputOf(const std::vector<std::string>& command, int milliseconds);

}  // namespace mirevo
