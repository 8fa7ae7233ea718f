#pragma once

#include <CLI/App.hpp>

namespace mirevo {

void AddDoctorCommand(CLI::App& app, int& exitCode);

}  // namespace mirevo
