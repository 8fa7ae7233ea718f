#pragma once

#include <CLI/App.hpp>

namespace mirevo {

void AddHardwareCommand(CLI::App& app, int& exitCode);

}  // namespace mirevo
