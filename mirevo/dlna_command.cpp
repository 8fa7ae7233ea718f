#include "mirevo/dlna_command.h"

#include <cerrno>
#include <cstring>
#include <iostream>
#include <memory>
#include <string>

#include "accounts/accounts.h"
#include "mirevo/exit_codes.h"
#include "mirevo/output.h"
#include "settings/televisions.h"

namespace mirevo {
namespace {

struct Options {
  std::string wish;
  std::string account;
  bool json = false;
};

int Show(bool json) {
  const settings::Televisions televisions = settings::ReadTelevisions();
  if (json) {
    Json::Value document(Json::objectValue);
    document["on"] = televisions.areLetIn;
    document["account"] = televisions.account;
    PrintJson(document);
  } else if (!televisions.areLetIn) {
    std::cout << "televisions: off\n";
  } else {
    std::cout << "televisions: on, with "
              << (televisions.account.empty() ? "all films" : "the films of " + televisions.account)
              << "\n";
  }
  return kOk;
}

int ExitCodeOf(settings::Outcome outcome) {
  if (outcome == settings::Outcome::kDone) {
    return kOk;
  }
  if (outcome == settings::Outcome::kDamaged) {
    Complain(settings::Describe(outcome));
    return kFailed;
  }
  Complain(std::string("the setting cannot be written: ") + strerror(errno));
  return errno == EACCES || errno == EPERM ? kNoPermission : kFailed;
}

// Televisions do not log in, so somebody has to say whose films they see.
int Admit(const std::string& account) {
  if (account.empty() && accounts::AreNeeded()) {
    Complain("whose films may televisions show? Name an account with --account");
    return kUsage;
  }
  if (!account.empty() && !accounts::Find(account)) {
    Complain("there is no account \"" + account + "\"; mirevo account list shows them");
    return kFailed;
  }
  return ExitCodeOf(settings::LetTelevisionsIn(account));
}

int Run(const Options& options) {
  int result = kOk;
  if (options.wish == "on") {
    result = Admit(options.account);
  } else if (options.wish == "off") {
    result = ExitCodeOf(settings::KeepTelevisionsOut());
  } else if (!options.wish.empty()) {
    Complain("dlna takes on or off, not \"" + options.wish + "\"");
    return kUsage;
  }
  return result == kOk ? Show(options.json) : result;
}

}  // namespace

void AddDlnaCommand(CLI::App& app, int& exitCode) {
  auto options = std::make_shared<Options>();
  CLI::App* const command = app.add_subcommand(
      "dlna", "Show films to the televisions of the local network, or stop that");
  command->add_option("SWITCH", options->wish, "on or off");
  command->add_option("--account", options->account, "The account whose films they see")
      ->type_name("NAME");
  command->add_flag("--json", options->json, "Print the setting as JSON");
  command->callback([options, &exitCode] { exitCode = Run(*options); });
}

}  // namespace mirevo
