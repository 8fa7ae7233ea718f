#include "mirevo/convert_command.h"

#include <cstdint>
#include <iostream>
#include <memory>
#include <string>
#include <vector>

#include "convert/queue.h"
#include "convert/recipe.h"
#include "mirevo/exit_codes.h"
#include "mirevo/film_argument.h"
#include "mirevo/output.h"

namespace mirevo {
namespace {

using convert::Item;
using convert::Queue;

struct Options {
  std::vector<std::string> films;
  std::vector<int64_t> ids;
  std::string profile;
  bool off = false;
  bool json = false;
};

int NoQueue() {
  Complain("the list of conversions cannot be opened");
  return kNoPermission;
}

int Add(const Options& options) {
  const auto profile = convert::FindProfile(options.profile);
  if (!profile) {
    Complain("there is no profile \"" + options.profile + "\"");
    return kUsage;
  }
  Queue queue;
  for (const std::string& film : options.films) {
    const std::string path = RealPath(film);
    if (path.empty()) {
      return NoSuchPath(film);
    }
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

int Remove(const Options& options) {
  const Queue queue;
  if (!queue.IsOpen()) {
    return NoQueue();
  }
  for (const int64_t id : options.ids) {
    if (!queue.Remove(id)) {
      Complain("there is no conversion " + std::to_string(id));
      return kNoInput;
    }
  }
  return kOk;
}

}  // namespace

void AddConvertCommand(CLI::App& app, int& exitCode) {
  auto options = std::make_shared<Options>();
  CLI::App& command = *app.add_subcommand(
      "convert", "Convert films in the background to files that play everywhere");
  command.require_subcommand(1);

  CLI::App& add = *command.add_subcommand("add", "Add films; prints the id of each");
  add.add_option("film", options->films, "The films")->required()->type_name("FILE");
  add.add_option("--profile", options->profile, "mp4, mp4-720p or mp4-480p; default: mp4")
      ->type_name("NAME");
  add.callback([options, &exitCode] { exitCode = Add(*options); });

  CLI::App& list = *command.add_subcommand("list", "Show the films, their states and progress");
  list.add_flag("--json", options->json, "Print a JSON document");
  list.callback([options, &exitCode] { exitCode = List(*options); });

  CLI::App& remove = *command.add_subcommand("remove", "Remove films and their results");
  remove.add_option("id", options->ids, "The ids")->required()->type_name("ID");
  remove.callback([options, &exitCode] { exitCode = Remove(*options); });

  CLI::App& pause = *command.add_subcommand("pause", "Pause all conversions");
  pause.add_flag("--off", options->off, "Go on");
  pause.callback(
      [options, &exitCode] { exitCode = Queue().SetPaused(!options->off) ? kOk : NoQueue(); });
}

}  // namespace mirevo
