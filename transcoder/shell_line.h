#pragma once

#include <string>
#include <vector>

namespace orvo::transcoder {

// The command as one line for a person to read or to paste into a shell.
std::string ShellLine(const std::vector<std::string>& command);

}  // namespace orvo::transcoder
