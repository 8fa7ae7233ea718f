#pragma once

#include <CLI/App.hpp>

namespace mirevo {

void AddStatusCommand(CLI::App& app, int& exitCode);

}  // namespace mirevo
