#include "mirevo/play_command.h"

#include <algorithm>
#include <iostream>
#include <iterator>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "mirevo/exit_codes.h"
#include "mirevo/film_argument.h"
#include "mirevo/output.h"
#include "mirevo/service_client.h"
#include "util/json_utils.h"
#include "webapi/choice/explain.h"
#include "webapi/choice/profiles.h"

namespace mirevo {
namespace {

struct Options {
  std::string file;
  std::map<std::string, std::string> wishes;  // keys: the API's parameters
  bool json = false;
  bool network = false;
};

struct Wish {
  const char* option;
  const char* parameter;
  const char* help;
  const char* type;
};
constexpr Wish kFormat = {
    "--format", "format",
    "The kind of stream. Default: the original file if the player plays it, otherwise HLS", ""};
constexpr Wish kWishes[] = {
    {"--profile", "profile", "The quality; mirevo explain lists the keys", "KEY"},
    {"--audio", "audio_id", "The id of the audio track; mirevo probe lists the tracks", "ID"},
    {"--subtitle", "subtitle_id", "The id of the subtitle, or all (HLS)", "ID"},
    {"--device", "device", "The player that will open the address", "NAME"},
};

// The format to which the profile belongs. A key that no format has is for the service to refuse.
std::string FormatOf(const std::string& profile) {
  for (const std::string& format : webapi::Formats()) {
    for (const webapi::Profile& candidate : webapi::ProfilesOf(format)) {
      if (candidate.key == profile) {
        return format;
      }
    }
  }
  return "http";
}

// The formats to try, in this order. A player can seek in the original file and in HLS, but not in
// one endless stream. The original file plays with its first sound and without subtitles.
std::vector<std::string> FormatsFor(const std::map<std::string, std::string>& wishes) {
  if (const auto format = wishes.find("format"); format != wishes.end()) {
    return {format->second};
  }
  if (const auto profile = wishes.find("profile"); profile != wishes.end()) {
    return {FormatOf(profile->second)};
  }
  if (wishes.count("audio_id") + wishes.count("subtitle_id") > 0) {
    return {"hls", "http"};
  }
  return {"direct", "hls", "http"};
}

// Opens the film in the first format that fits it and the player.
Reply Open(std::map<std::string, std::string> parameters) {
  Reply reply;
  parameters["force_open_qmx"] = "true";  // a viewer does not wait for a conversion
  for (const std::string& format : FormatsFor(parameters)) {
    parameters["format"] = format;
    reply = CallService("Streaming", "open", parameters);
    if (reply.exitCode != kFailed) {
      break;
    }
  }
  return reply;
}

// Prints the address for this machine or for others on the network.
int PrintAddress(const Json::Value& opened, bool network) {
  const std::string address = opened[network ? "network_url" : "url"].asString();
  if (address.empty()) {
    Complain("Only this machine reaches the service. Start it with --listen 0.0.0.0.");
    return kUnavailable;
  }
  std::cout << address << "\n";
  return kOk;
}

int Play(const Options& options) {
  const std::string path = RealPath(options.file);
  if (path.empty()) {
    return NoSuchPath(options.file);
  }
  std::map<std::string, std::string> parameters = options.wishes;
  // Sent as a JSON text: the service would take a plain path in quotes for JSON.
  parameters["path"] = LibMirevo::FormatJson(Json::Value(path));
  parameters["path"].pop_back();
  const Reply reply = Open(parameters);
  if (reply.exitCode != kOk) {
    Complain(reply.message);
    return reply.exitCode;
  }
  if (options.json) {
    PrintJson(reply.data);
    return kOk;
  }
  return PrintAddress(reply.data, options.network);
}

}  // namespace

void AddPlayCommand(CLI::App& app, int& exitCode) {
  auto options = std::make_shared<Options>();
  CLI::App* const command = app.add_subcommand(
      "play", "Open a film on the running service and print an address that a player can open");
  command->add_option("file", options->file, "The film")->required()->type_name("FILE");
  const auto addWish = [&](const Wish& wish) {
    return command
        ->add_option_function<std::string>(
            wish.option,
            [options, name = wish.parameter](const std::string& value) {
              options->wishes[name] = value;
            },
            wish.help)
        ->type_name(wish.type);
  };
  addWish(kFormat)->check(CLI::IsMember({"hls", "http", "webm", "ss", "direct"}));
  std::for_each(std::begin(kWishes), std::end(kWishes), addWish);
  command->add_flag("--json", options->json, "Print the service's answer as JSON");
  command->add_flag("--network", options->network,
                    "Print the address for players on other machines");
  command->callback([options, &exitCode] { exitCode = Play(*options); });
}

}  // namespace mirevo
