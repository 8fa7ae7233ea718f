#pragma once

#include <CLI/App.hpp>

namespace mirevo {

void AddPlayCommand(CLI::App& app, int& exitCode);

}  // namespace mirevo
