#include "mirevo/hardware_command.h"

#include <cerrno>
#include <cstring>
#include <iostream>
#include <memory>
#include <string>
#include <vector>

#include "mirevo/exit_codes.h"
#include "mirevo/output.h"
#include "serve/machine_setup.h"
#include "settings/hardware.h"
#include "webapi/choice/engine_rows.h"

namespace mirevo {
namespace {

void PrintEngines(const Json::Value& engines) {
  std::vector<std::vector<std::string>> rows = {{"ENGINE", "DEVICE", "LINES", ""}};
  for (const Json::Value& engine : engines) {
    rows.push_back({engine["encoder"].asString(), engine["device"].asString(),
                    engine["lines"].asString(), engine["reason"].asString()});
  }
  if (rows.size() > 1) {
    PrintTable(rows);
  } else {
    std::cout << "No video engine has a device on this machine.\n";
  }
}

int Show(bool json) {
  const Json::Value engines = webapi::DescribeEngines();
  if (json) {
    Json::Value document(Json::objectValue);
    document["wanted"] = settings::IsHardwareWanted();
    document["engines"] = engines;
    PrintJson(document);
  } else {
    std::cout << "hardware: " << (settings::IsHardwareWanted() ? "on" : "off") << "\n";
    PrintEngines(engines);
  }
  return kOk;
}

// Somebody who switches engines on may have repaired one.
int Switch(bool on) {
  const auto outcome = settings::WantHardware(on);
  if (outcome == settings::Outcome::kDamaged) {
    Complain(settings::Describe(outcome));
    return kFailed;
  }
  if (outcome == settings::Outcome::kFailed) {
    Complain(std::string("the setting cannot be written: ") + strerror(errno));
    return errno == EACCES || errno == EPERM ? kNoPermission : kFailed;
  }
  if (on) {
    serve::ProveEngines();
  }
  return kOk;
}

}  // namespace

void AddHardwareCommand(CLI::App& app, int& exitCode) {
  struct Options {
    std::string wish;
    bool json = false;
  };
  auto options = std::make_shared<Options>();
  CLI::App* const command =
      app.add_subcommand("hardware", "Show the video engines, or switch their use on or off");
  command->add_option("SWITCH", options->wish, "on or off");
  command->add_flag("--json", options->json, "Print the engines as JSON");
  command->callback([options, &exitCode] {
    if (!options->wish.empty() && options->wish != "on" && options->wish != "off") {
      Complain("hardware takes on or off, not \"" + options->wish + "\"");
      exitCode = kUsage;
      return;
    }
    exitCode = options->wish.empty() ? kOk : Switch(options->wish == "on");
    if (exitCode == kOk) {
      exitCode = Show(options->json);
    }
  });
}

}  // namespace mirevo
