#include "mirevo/platform_command.h"

#include <cerrno>
#include <cstring>
#include <iostream>
#include <memory>
#include <string>

#include "mirevo/exit_codes.h"
#include "mirevo/output.h"
#include "policy/platform_utils.h"
#include "serve/machine_setup.h"

namespace mirevo {
namespace {

std::string OriginOf(const serve::PlatformEntry& entry) {
  if (entry.name.empty()) {
    return "none";
  }
  return entry.isDetected ? "detected" : "own";
}

int Show(bool json) {
  const serve::PlatformEntry entry = serve::ReadPlatformEntry();
  const std::string profiles = libmrv::util::PlatformUtils().GetTransPlatformName();
  if (json) {
    Json::Value document(Json::objectValue);
    document["platform"] = entry.name;
    document["origin"] = OriginOf(entry);
    document["profiles"] = profiles;
    PrintJson(document);
  } else {
    std::cout << "platform: " << (entry.name.empty() ? "not known" : entry.name) << " ("
              << OriginOf(entry) << ")\nprofiles: " << profiles << "\n";
  }
  return kOk;
}

int Fail(const std::string& what) {
  Complain(what + ": " + strerror(errno));
  return errno == EACCES || errno == EPERM ? kNoPermission : kFailed;
}

int Detect() {
  return serve::DetectMachine(serve::ProveEngines()) ? kOk : Fail("the platform cannot be written");
}

int Name(const std::string& name) {
  if (!serve::IsPlatformName(name)) {
    Complain("there is no platform \"" + name + "\"; the platforms are " + serve::PlatformNames());
    return kUsage;
  }
  return serve::NamePlatform(name) ? kOk : Fail("the platform cannot be written");
}

}  // namespace

void AddPlatformCommand(CLI::App& app, int& exitCode) {
  struct Options {
    std::string name;
    bool detect = false;
    bool json = false;
  };
  auto options = std::make_shared<Options>();
  CLI::App* const command =
      app.add_subcommand("platform", "Show or set what this machine is, which picks its profiles");
  command->add_option("NAME", options->name, "The platform that this machine is");
  command->add_flag("--detect", options->detect,
                    "Find out what the machine is; an entry of the owner stays");
  command->add_flag("--json", options->json, "Print the platform as JSON");
  command->callback([options, &exitCode] {
    if (!options->name.empty()) {
      exitCode = Name(options->name);
    } else if (options->detect) {
      exitCode = Detect();
    }
    if (exitCode == kOk) {
      exitCode = Show(options->json);
    }
  });
}

}  // namespace mirevo
