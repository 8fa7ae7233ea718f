#include "mirevo/play_command.h"

#include <iostream>
#include <map>
#include <memory>

#include "mirevo/exit_codes.h"
#include "mirevo/film_argument.h"
#include "mirevo/output.h"
#include "mirevo/service_client.h"
#include "util/json_utils.h"

namespace mirevo {
namespace {

struct Options {
  std::string file;
  std::map<std::string, std::string> wishes = {{"format", "http"}};  // keys: the API's parameters
  bool json = false;
};

struct Wish {
  const char* option;
  const char* parameter;
  const char* help;
  const char* type;
};
constexpr Wish kWishes[] = {
    {"--profile", "profile", "The quality; mirevo explain lists the keys", "KEY"},
    {"--audio", "audio_id", "The id of the audio track; mirevo probe lists the tracks", "ID"},
    {"--subtitle", "subtitle_id", "The id of the subtitle, or all (HLS)", "ID"},
    {"--device", "device", "The player that will open the address", "NAME"},
};

int Play(const Options& options) {
  const std::string path = RealPath(options.file);
  if (path.empty()) {
    return NoSuchPath(options.file);
  }
  std::map<std::string, std::string> parameters = options.wishes;
  // Sent as a JSON text: the service would take a plain path in quotes for JSON.
  parameters["path"] = LibMirevo::FormatJson(Json::Value(path));
  parameters["path"].pop_back();
  const Reply reply = CallService("Streaming", "open", parameters);
  if (reply.exitCode != kOk) {
    Complain(reply.message);
  } else if (options.json) {
    PrintJson(reply.data);
  } else {
    std::cout << reply.data["url"].asString() << "\n";
  }
  return reply.exitCode;
}

}  // namespace

void AddPlayCommand(CLI::App& app, int& exitCode) {
  auto options = std::make_shared<Options>();
  CLI::App* const command = app.add_subcommand(
      "play", "Open a film on the running service and print an address that a player can open");
  command->add_option("file", options->file, "The film")->required()->type_name("FILE");
  command->add_option("--format", options->wishes["format"], "The kind of stream")
      ->check(CLI::IsMember({"hls", "http", "webm", "ss", "direct"}))
      ->capture_default_str();
  for (const Wish& wish : kWishes) {
    command
        ->add_option_function<std::string>(
            wish.option,
            [options, name = wish.parameter](const std::string& value) {
              options->wishes[name] = value;
            },
            wish.help)
        ->type_name(wish.type);
  }
  command->add_flag("--json", options->json, "Print the service's answer as JSON");
  command->callback([options, &exitCode] { exitCode = Play(*options); });
}

}  // namespace mirevo
