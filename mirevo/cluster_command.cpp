#include "mirevo/cluster_command.h"

#include <iostream>
#include <string>

#include "mirevo/exit_codes.h"
#include "mirevo/output.h"
#include "webapi/cluster/cluster_keys.h"

namespace mirevo {
namespace {

int PrintKey() {
  const std::string key = webapi::NewClusterKey();
  if (key.empty()) {
    Complain("the kernel gives no random bits");
    return kFailed;
  }
  std::cout << key << "\n";
  return kOk;
}

}  // namespace

void AddClusterCommand(CLI::App& app, int& exitCode) {
  CLI::App* const command =
      app.add_subcommand("cluster", "Prepare several boxes that serve the same films");
  command->require_subcommand(1);
  command->add_subcommand("key", "Print a new key for the file that cluster_key names")
      ->callback([&exitCode] { exitCode = PrintKey(); });
}

}  // namespace mirevo
