#pragma once

#include <CLI/App.hpp>

namespace mirevo {

void AddServeCommand(CLI::App& app, int& exitCode);

}  // namespace mirevo
