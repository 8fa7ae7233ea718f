#pragma once

#include <CLI/App.hpp>

namespace mirevo {

void AddAnalyzeCommand(CLI::App& app, int& exitCode);

}  // namespace mirevo
