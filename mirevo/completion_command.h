#pragma once

#include <CLI/App.hpp>

namespace mirevo {

// To be called when all other commands are there.
void AddCompletionCommand(CLI::App& app, int& exitCode);

}  // namespace mirevo
