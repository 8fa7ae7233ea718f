#pragma once

#include <CLI/App.hpp>

namespace mirevo {

// Call this after all other commands have been added.
void AddCompletionCommand(CLI::App& app, int& exitCode);

}  // namespace mirevo
