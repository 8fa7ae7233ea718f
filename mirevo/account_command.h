#pragma once

#include <CLI/App.hpp>

namespace mirevo {

void AddAccountCommand(CLI::App& app, int& exitCode);

}  // namespace mirevo
