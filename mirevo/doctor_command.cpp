#include "mirevo/doctor_command.h"

#include <algorithm>
#include <iostream>
#include <memory>

#include "mirevo/exit_codes.h"
#include "mirevo/health.h"
#include "mirevo/output.h"

namespace mirevo {
namespace {

using Findings = std::vector<Finding>;

bool IsHealthy(const Findings& findings) {
  return std::none_of(findings.begin(), findings.end(),
                      [](const Finding& finding) { return finding.state == State::kMissing; });
}

void PrintForPrograms(const Findings& findings) {
  Json::Value document(Json::objectValue);
  document["ok"] = IsHealthy(findings);
  document["findings"] = Json::Value(Json::arrayValue);
  for (const Finding& finding : findings) {
    Json::Value& entry = document["findings"].append(Json::Value(Json::objectValue));
    entry["check"] = finding.check;
    entry["state"] = NameOf(finding.state);
    entry["detail"] = finding.detail;
    entry["remedy"] = finding.remedy;
  }
  PrintJson(document);
}

void PrintForPeople(const Findings& findings, bool all) {
  std::vector<std::vector<std::string>> rows;
  for (const Finding& finding : findings) {
    if (all || finding.state != State::kGood) {
      rows.push_back({NameOf(finding.state), finding.check, finding.detail, finding.remedy});
    }
  }
  PrintTable(rows);
  std::cout << (IsHealthy(findings)
                    ? "Films can be served.\n"
                    : "Films cannot be served until each line with \"missing\" is fixed.\n");
}

int Doctor(bool json, bool all) {
  const Findings findings = ExamineMachine();
  if (json) {
    PrintForPrograms(findings);
  } else {
    PrintForPeople(findings, all);
  }
  return IsHealthy(findings) ? kOk : kFailed;
}

}  // namespace

void AddDoctorCommand(CLI::App& app, int& exitCode) {
  struct Options {
    bool json = false;
    bool all = false;
  };
  auto options = std::make_shared<Options>();
  CLI::App* const command = app.add_subcommand(
      "doctor", "Report what this machine lacks to serve films, and how to fix it");
  command->add_flag("--all", options->all, "Show also the checks that passed");
  command->add_flag("--json", options->json, "Print all findings as JSON");
  command->callback([options, &exitCode] { exitCode = Doctor(options->json, options->all); });
}

}  // namespace mirevo
