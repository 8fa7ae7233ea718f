// Runs another program for its output.
#pragma once

#include <optional>
#include <string>
#include <vector>

namespace mirevo {

// Runs the program at the path command[0] with these arguments and returns its standard output.
// Nothing if the program cannot be run, fails, or does not end within `milliseconds`.
std::optional<std::string> OutputOf(const std::vector<std::string>& command, int milliseconds);

}  // namespace mirevo
