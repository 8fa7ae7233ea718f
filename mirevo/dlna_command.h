// Shows films to televisions, or stops that.
#pragma once

#include <CLI/App.hpp>

namespace mirevo {

void AddDlnaCommand(CLI::App& app, int& exitCode);

}  // namespace mirevo
