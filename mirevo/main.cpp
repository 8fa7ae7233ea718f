// mirevo: the program for people and scripts.
#include <syslog.h>

#include <CLI/App.hpp>
#include <CLI/Config.hpp>
#include <CLI/Formatter.hpp>
#include <cstdio>
#include <exception>
#include <string>
#include <string_view>
#include <vector>

#include "mirevo/account_command.h"
#include "mirevo/agent_command.h"
#include "mirevo/analyze_command.h"
#include "mirevo/cluster_command.h"
#include "mirevo/completion_command.h"
#include "mirevo/convert_command.h"
#include "mirevo/dlna_command.h"
#include "mirevo/doctor_command.h"
#include "mirevo/exit_codes.h"
#include "mirevo/explain_command.h"
#include "mirevo/hardware_command.h"
#include "mirevo/output.h"
#include "mirevo/platform_command.h"
#include "mirevo/play_command.h"
#include "mirevo/probe_command.h"
#include "mirevo/serve_command.h"
#include "mirevo/status_command.h"

namespace {

// The command in the program's own name: "serve" for "mirevo-serve", "" without one.
std::string CommandInName(std::string_view program) {
  constexpr std::string_view kPrefix = "mirevo-";
  const std::string_view name = program.substr(program.rfind('/') + 1);
  return std::string(name.substr(0, kPrefix.size()) == kPrefix ? name.substr(kPrefix.size()) : "");
}

std::vector<std::string> Arguments(int argc, char** argv) {
  std::vector<std::string> arguments(argv + 1, argv + argc);
  if (const std::string command = CommandInName(argv[0]); !command.empty()) {
    arguments.insert(arguments.begin(), command);
  }
  return {arguments.rbegin(), arguments.rend()};  // the parser expects them in reverse order
}

// A command line without a command: a word that is none is worth more to the user than the parser's
// words.
int ExitCodeOf(const CLI::App& app, const CLI::ParseError& error) {
  const std::vector<std::string> unknown = app.remaining();
  if (app.get_subcommands().empty() && !unknown.empty()) {
    mirevo::Complain("there is no command \"" + unknown.front() +
                     "\"; mirevo --help lists the commands");
    return mirevo::kUsage;
  }
  return app.exit(error) == 0 ? mirevo::kOk : mirevo::kUsage;
}

int Run(int argc, char** argv) {
  int exitCode = mirevo::kOk;
  CLI::App app("Watch stored films on any device while the server converts them.", "mirevo");
  app.set_version_flag("--version", "mirevo " MIREVO_VERSION);
  app.set_help_all_flag("--help-all", "Print the help of all commands and exit");
  app.require_subcommand(1);
  app.fallthrough();
  app.set_config("--config", "",
                 "Read options from this file; a line such as [serve] names their command");
  app.allow_config_extras(CLI::config_extras_mode::error);
  for (const auto add :
       {mirevo::AddServeCommand, mirevo::AddAccountCommand, mirevo::AddPlayCommand,
        mirevo::AddStatusCommand, mirevo::AddProbeCommand, mirevo::AddExplainCommand,
        mirevo::AddAnalyzeCommand, mirevo::AddConvertCommand, mirevo::AddPlatformCommand,
        mirevo::AddHardwareCommand, mirevo::AddDlnaCommand, mirevo::AddClusterCommand,
        mirevo::AddAgentCommand, mirevo::AddDoctorCommand, mirevo::AddCompletionCommand}) {
    add(app, exitCode);
  }
  try {
    app.parse(Arguments(argc, argv));
  } catch (const CLI::ParseError& error) {
    return ExitCodeOf(app, error);
  }
  return exitCode;
}

}  // namespace

int main(int argc, char** argv) {
  openlog("mirevo", LOG_PID, LOG_USER);
  try {
    return Run(argc, argv);
  } catch (const std::exception& error) {
    fprintf(stderr, "mirevo: %s\n", error.what());
    return mirevo::kFailed;
  }
}
