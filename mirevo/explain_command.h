#pragma once

#include <CLI/App.hpp>

namespace mirevo {

void AddExplainCommand(CLI::App& app, int& exitCode);

}  // namespace mirevo
