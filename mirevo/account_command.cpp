#include "mirevo/account_command.h"

#include <unistd.h>

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "accounts/accounts.h"
#include "accounts/password_prompt.h"
#include "mirevo/exit_codes.h"
#include "mirevo/output.h"

namespace mirevo {
namespace {

using accounts::Outcome;

struct Options {
  std::string name;
  bool owner = false;
  bool json = false;
  std::vector<std::string> roots;
};

int ExitCodeOf(Outcome outcome) {
  switch (outcome) {
    case Outcome::kDone:
      return kOk;
    case Outcome::kBadName:
    case Outcome::kBadPassword:
    case Outcome::kBadRoot:
    case Outcome::kExists:
    case Outcome::kNotFirst:
    case Outcome::kLastOwner:
      return kUsage;
    case Outcome::kUnknown:
      return kNoInput;
    case Outcome::kDamaged:
    case Outcome::kFailed:
      break;
  }
  return kFailed;
}

int Report(Outcome outcome) {
  if (outcome != Outcome::kDone) {
    Complain(accounts::Describe(outcome));
  }
  return ExitCodeOf(outcome);
}

// The new password. Nothing, with a complaint, if there is none or the repetition differs.
std::optional<std::string> NewPassword() {
  const auto password = accounts::ReadPassword("Password: ");
  const bool isMeant = password && (isatty(STDIN_FILENO) == 0 ||
                                    accounts::ReadPassword("Repeat the password: ") == password);
  if (!isMeant) {
    Complain("The password is missing, or the two entries differ.");
    return std::nullopt;
  }
  return password;
}

int Add(const Options& options) {
  const auto password = NewPassword();
  return password ? Report(accounts::Create(options.name, *password, options.owner, options.roots))
                  : kUsage;
}

int ChangePassword(const Options& options) {
  const auto password = NewPassword();
  return password ? Report(accounts::SetPassword(options.name, *password)) : kUsage;
}

Json::Value Document(const std::vector<accounts::Account>& all) {
  Json::Value document(Json::arrayValue);
  for (const accounts::Account& account : all) {
    Json::Value& entry = document.append(Json::Value(Json::objectValue));
    entry["name"] = account.name;
    entry["owner"] = account.owner;
    entry["roots"] = Json::Value(Json::arrayValue);
    for (const std::string& root : account.roots) {
      entry["roots"].append(root);
    }
  }
  return document;
}

int List(const Options& options) {
  const auto all = accounts::List();
  if (!all) {
    return Report(Outcome::kDamaged);
  }
  if (options.json) {
    PrintJson(Document(*all));
    return kOk;
  }
  std::vector<std::vector<std::string>> rows = {{"ACCOUNT", "ROLE", "SEES"}};
  for (const accounts::Account& account : *all) {
    std::string roots;
    for (const std::string& root : account.roots) {
      roots += (roots.empty() ? "" : ", ") + Printable(root);
    }
    rows.push_back(
        {account.name, account.owner ? "owner" : "", roots.empty() ? "everything" : roots});
  }
  PrintTable(rows);
  return kOk;
}

CLI::App& AddOne(CLI::App& command, const char* name, const char* help,
                 const std::shared_ptr<Options>& options) {
  CLI::App& added = *command.add_subcommand(name, help);
  added.add_option("name", options->name, "The account's name")->required()->type_name("NAME");
  return added;
}

}  // namespace

void AddAccountCommand(CLI::App& app, int& exitCode) {
  auto options = std::make_shared<Options>();
  CLI::App& command = *app.add_subcommand("account", "Manage who may use the service");
  command.require_subcommand(1);

  CLI::App& add = AddOne(command, "add", "Create an account; the first one is an owner", options);
  add.add_flag("--owner", options->owner, "Let the account see the status and close all streams");
  add.add_option("--root", options->roots,
                 "Let the account see only this folder; repeat the option for more folders")
      ->type_name("PATH")
      ->allow_extra_args(false);
  add.callback([options, &exitCode] { exitCode = Add(*options); });

  AddOne(command, "remove", "Remove an account", options).callback([options, &exitCode] {
    exitCode = Report(accounts::Remove(options->name));
  });
  AddOne(command, "passwd", "Set a new password; the account's sessions end", options)
      .callback([options, &exitCode] { exitCode = ChangePassword(*options); });

  AddOne(command, "logout", "End the account's sessions and links everywhere", options)
      .callback([options, &exitCode] { exitCode = Report(accounts::EndSessions(options->name)); });

  CLI::App& grant = AddOne(command, "grant", "Set which folders an account sees", options);
  grant.add_option("paths", options->roots, "The folders; without one, all served folders")
      ->type_name("PATH");
  grant.callback([options, &exitCode] {
    exitCode = Report(accounts::GrantRoots(options->name, options->roots));
  });

  CLI::App& list = *command.add_subcommand("list", "Show the accounts");
  list.add_flag("--json", options->json, "Print a JSON document");
  list.callback([options, &exitCode] { exitCode = List(*options); });
}

}  // namespace mirevo
