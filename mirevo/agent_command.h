#pragma once

#include <CLI/App.hpp>
#include <string>

namespace mirevo {

// Adds an option for the address at which an agent answers.
CLI::Option& AddAgentPlace(CLI::App& command, const std::string& name, std::string& place,
                           const std::string& meaning);

void AddAgentCommand(CLI::App& app, int& exitCode);

}  // namespace mirevo
