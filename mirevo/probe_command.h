#pragma once

#include <CLI/App.hpp>

namespace mirevo {

void AddProbeCommand(CLI::App& app, int& exitCode);

}  // namespace mirevo
