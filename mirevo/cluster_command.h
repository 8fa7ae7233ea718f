#pragma once

#include <CLI/App.hpp>

namespace mirevo {

void AddClusterCommand(CLI::App& app, int& exitCode);

}  // namespace mirevo
