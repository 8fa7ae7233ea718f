#pragma once

#include <CLI/App.hpp>

namespace mirevo {

void AddAgentCommand(CLI::App& app, int& exitCode);

}  // namespace mirevo
