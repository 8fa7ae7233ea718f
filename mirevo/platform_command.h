#pragma once

#include <CLI/App.hpp>

namespace mirevo {

void AddPlatformCommand(CLI::App& app, int& exitCode);

}  // namespace mirevo
