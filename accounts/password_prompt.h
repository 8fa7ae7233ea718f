// Asking for a password.
#pragma once

#include <optional>
#include <string>

namespace accounts {

// One line of standard input, without its end. From a terminal `prompt` is shown there first and
// what is typed is not. Nothing at the end of the input, or for a line of more than 4096 bytes.
std::optional<std::string> ReadPassword(const std::string& prompt);

}  // namespace accounts
