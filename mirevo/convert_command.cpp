#include "mirevo/convert_command.h"

#include <cstdint>
#include <iostream>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "convert/queue.h"
#include "convert/recipe.h"
#include "mirevo/exit_codes.h"
#include "mirevo/film_argument.h"
#include "mirevo/output.h"
#include "webapi/conversions/rule_following.h"

namespace mirevo {
namespace {

using convert::Item;
using convert::Queue;
using convert::Rule;

constexpr char kProfileHelp[] = "mp4, mp4-720p or mp4-480p; default: mp4";
constexpr char kJsonHelp[] = "Print a JSON document";

struct Options {
  std::vector<std::string> films;
  std::string folder;
  std::vector<int64_t> ids;
  std::string profile;
  bool off = false;
  bool json = false;
};

int NoQueue() {
  Complain("the list of conversions cannot be opened");
  return kNoPermission;
}

// Nothing, after a complaint, if there is no such profile.
std::optional<convert::Profile> FindProfile(const std::string& name) {
  auto profile = convert::FindProfile(name);
  if (!profile) {
    Complain("there is no profile \"" + name + "\"");
  }
  return profile;
}

// Can each of them be converted?
int CheckFilms(const std::vector<std::string>& films) {
  for (const std::string& film : films) {
    LibOrvoQMX::VideoMetaData facts;
    const int code = LoadFilm(film, facts);
    if (code != kOk) {
      return code;
    }
  }
  return kOk;
}

int Add(const Options& options) {
  const auto profile = FindProfile(options.profile);
  if (!profile) {
    return kUsage;
  }
  const int code = CheckFilms(options.films);
  if (code != kOk) {
    return code;
  }
  Queue queue;
  for (const std::string& film : options.films) {
    const std::string path = RealPath(film);
    const auto id = queue.Add(path, path, profile->name);
    if (!id) {
      return NoQueue();
    }
    std::cout << *id << "\n";
  }
  return kOk;
}

int Percent(const Item& item) {
  return static_cast<int>(ProgressOf(item) * 100);
}

void PrintAsJson(const Queue& queue) {
  Json::Value document(Json::objectValue);
  document["paused"] = queue.IsPaused();
  document["items"] = Json::Value(Json::arrayValue);
  for (const Item& item : queue.List()) {
    Json::Value& entry = document["items"].append(Json::Value(Json::objectValue));
    entry["id"] = static_cast<Json::Int64>(item.id);
    entry["path"] = item.path;
    entry["profile"] = item.profile;
    entry["state"] = NameOf(item.state);
    entry["progress"] = ProgressOf(item);
    entry["reason"] = item.reason;
  }
  PrintJson(document);
}

int List(const Options& options) {
  const Queue queue;
  if (!queue.IsOpen()) {
    return NoQueue();
  }
  if (options.json) {
    PrintAsJson(queue);
    return kOk;
  }
  std::vector<std::vector<std::string>> rows = {{"ID", "STATE", "DONE", "PROFILE", "FILM", ""}};
  for (const Item& item : queue.List()) {
    rows.push_back({std::to_string(item.id), NameOf(item.state),
                    std::to_string(Percent(item)) + " %", item.profile, Printable(item.path),
                    Printable(item.reason)});
  }
  PrintTable(rows);
  if (queue.IsPaused()) {
    std::cout << "paused; \"mirevo convert pause --off\" goes on\n";
  }
  return kOk;
}

// Removes the conversions or rules with these ids. `word`: what they are called.
int RemoveEach(const Options& options, bool (Queue::*remove)(int64_t) const, const char* word) {
  const Queue queue;
  if (!queue.IsOpen()) {
    return NoQueue();
  }
  for (const int64_t id : options.ids) {
    if (!(queue.*remove)(id)) {
      Complain(std::string("there is no ") + word + " " + std::to_string(id));
      return kNoInput;
    }
  }
  return kOk;
}

int AddRule(const Options& options) {
  const auto profile = FindProfile(options.profile);
  if (!profile) {
    return kUsage;
  }
  const std::string folder = RealPath(options.folder);
  if (folder.empty()) {
    return NoSuchPath(options.folder);
  }
  if (!convert::MayHaveRule(folder)) {
    Complain(options.folder + " is not a folder with films");
    return kUsage;
  }
  const auto id = Queue().AddRule(folder, profile->name);
  if (!id) {
    return NoQueue();
  }
  std::cout << *id << "\n";
  return kOk;
}

void PrintRulesAsJson(const std::vector<Rule>& rules) {
  Json::Value document(Json::objectValue);
  document["rules"] = Json::Value(Json::arrayValue);
  for (const Rule& rule : rules) {
    Json::Value& entry = document["rules"].append(Json::Value(Json::objectValue));
    entry["id"] = static_cast<Json::Int64>(rule.id);
    entry["path"] = rule.folder;
    entry["profile"] = rule.profile;
  }
  PrintJson(document);
}

int ListRules(const Options& options) {
  const Queue queue;
  if (!queue.IsOpen()) {
    return NoQueue();
  }
  if (options.json) {
    PrintRulesAsJson(queue.Rules());
    return kOk;
  }
  std::vector<std::vector<std::string>> rows = {{"ID", "PROFILE", "FOLDER"}};
  for (const Rule& rule : queue.Rules()) {
    rows.push_back({std::to_string(rule.id), rule.profile, Printable(rule.folder)});
  }
  PrintTable(rows);
  return kOk;
}

void AddRuleCommands(CLI::App& convert, const std::shared_ptr<Options>& options, int& exitCode) {
  CLI::App& rule = *convert.add_subcommand(
      "rule", "Convert the films of a folder that this machine cannot play in time");
  rule.require_subcommand(1);

  CLI::App& add = *rule.add_subcommand("add", "Add a folder; prints the id of the rule");
  add.add_option("folder", options->folder, "The folder")->required()->type_name("FOLDER");
  add.add_option("--profile", options->profile, kProfileHelp)->type_name("NAME");
  add.callback([options, &exitCode] { exitCode = AddRule(*options); });

  CLI::App& list = *rule.add_subcommand("list", "Show the rules");
  list.add_flag("--json", options->json, kJsonHelp);
  list.callback([options, &exitCode] { exitCode = ListRules(*options); });

  CLI::App& remove =
      *rule.add_subcommand("remove", "Remove rules, and the films that wait because of them");
  remove.add_option("id", options->ids, "The ids")->required()->type_name("ID");
  remove.callback(
      [options, &exitCode] { exitCode = RemoveEach(*options, &Queue::RemoveRule, "rule"); });

  // The conversion service runs it.
  CLI::App& follow = *convert.add_subcommand("follow-rules", "Queue the films that the rules name");
  follow.group("");
  follow.callback([&exitCode] { exitCode = webapi::FollowRules(); });
}

}  // namespace

void AddConvertCommand(CLI::App& app, int& exitCode) {
  auto options = std::make_shared<Options>();
  CLI::App& command = *app.add_subcommand(
      "convert", "Convert films in the background to files that play everywhere");
  command.require_subcommand(1);

  CLI::App& add = *command.add_subcommand("add", "Add films; prints the id of each");
  add.add_option("film", options->films, "The films")->required()->type_name("FILE");
  add.add_option("--profile", options->profile, kProfileHelp)->type_name("NAME");
  add.callback([options, &exitCode] { exitCode = Add(*options); });

  CLI::App& list = *command.add_subcommand("list", "Show the films, their states and progress");
  list.add_flag("--json", options->json, kJsonHelp);
  list.callback([options, &exitCode] { exitCode = List(*options); });

  CLI::App& remove = *command.add_subcommand("remove", "Remove films and their results");
  remove.add_option("id", options->ids, "The ids")->required()->type_name("ID");
  remove.callback(
      [options, &exitCode] { exitCode = RemoveEach(*options, &Queue::Remove, "conversion"); });

  CLI::App& pause = *command.add_subcommand("pause", "Pause all conversions");
  pause.add_flag("--off", options->off, "Go on");
  pause.callback(
      [options, &exitCode] { exitCode = Queue().SetPaused(!options->off) ? kOk : NoQueue(); });

  AddRuleCommands(command, options, exitCode);
}

}  // namespace mirevo
