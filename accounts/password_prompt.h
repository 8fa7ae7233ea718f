// Asks for a password.
#pragma once

#include <optional>
#include <string>

namespace accounts {

// Reads one line from standard input and returns it without its line end. On a terminal, shows
// `prompt` first and hides the typed text. Nothing at the end of the input, or for a line of more
// than 4096 bytes.
std::optional<std::string> ReadPassword(const std::string& prompt);

}  // namespace accounts
