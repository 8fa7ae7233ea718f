// The command "convert": films that are converted in advance.
#pragma once

#include <CLI/App.hpp>

namespace mirevo {

void AddConvertCommand(CLI::App& app, int& exitCode);

}  // namespace mirevo
