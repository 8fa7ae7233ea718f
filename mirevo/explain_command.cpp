#include "mirevo/explain_command.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <iostream>
#include <memory>

#include "mirevo/exit_codes.h"
#include "mirevo/film_argument.h"
#include "mirevo/output.h"
#include "mirevo/program_output.h"
#include "util/qmxutils.h"
#include "webapi/choice/explain.h"

namespace mirevo {
namespace {

using LibOrvoQMX::VideoMetaData;
using Rows = std::vector<std::vector<std::string>>;

constexpr int kTranslationMilliseconds = 5000;

struct Options {
  std::string file;
  std::string device;
  std::string userAgent;
  std::string format;
  std::string profile;
  std::string codecs;
  bool showsHighRange = false;
  bool json = false;
};

Json::Value Explain(const Options& options, const VideoMetaData& film) {
  Json::Value document(Json::objectValue);
  document["path"] = film.GetFilePath();
  document["direct"] = webapi::ExplainDirect(
      film, {options.userAgent, options.device, LibOrvoQMX::StringExplode(options.codecs, ", "),
             options.showsHighRange});
  document["profiles"] = Json::Value(Json::arrayValue);
  const Json::Value all = webapi::ExplainProfiles(film, options.device, options.format);
  if (options.profile.empty()) {
    document["profiles"] = webapi::Offers(all, film);
    return document;
  }
  for (const Json::Value& entry : all) {
    if (entry["key"] == options.profile) {
      document["profiles"].append(entry);
    }
  }
  return document;
}

std::string Picture(const Json::Value& entry) {
  return entry["method"] == "refused"
             ? ""
             : entry["width"].asString() + "x" + entry["height"].asString();
}

// "2.4x"; "" if it is not known.
std::string Speed(const Json::Value& entry) {
  std::array<char, 32> text{};
  snprintf(text.data(), text.size(), "%.1fx", entry["speed"].asDouble());
  return entry.isMember("speed") ? text.data() : "";
}

void PrintProfiles(const Json::Value& profiles) {
  Rows rows = {{"", "FORMAT", "PROFILE", "METHOD", "PICTURE", "KBIT/S", "SPEED", "WHY"}};
  for (const Json::Value& entry : profiles) {
    rows.push_back({entry["default"] == true ? "*" : "", entry["format"].asString(),
                    entry["key"].asString(), entry["method"].asString(), Picture(entry),
                    std::to_string(entry["bit_rate"].asUInt() / 1000), Speed(entry),
                    entry["why"].asString()});
  }
  PrintTable(rows);
}

// The command line of FFmpeg into which the transcoder turns its own. "" when the transcoder does
// not print it.
std::string Translated(const Json::Value& entry, const VideoMetaData& film,
                       const std::string& device) {
  const std::string format = entry["format"].asString();
  const std::vector<webapi::Profile> profiles = webapi::ProfilesOf(format);
  const auto profile =
      std::find_if(profiles.begin(), profiles.end(),
                   [&](const webapi::Profile& row) { return entry["key"] == row.key; });
  std::vector<std::string> command = profile == profiles.end()
                                         ? std::vector<std::string>()
                                         : webapi::CommandOf(format, *profile, film, device);
  if (command.empty()) {
    return "";
  }
  command.insert(command.begin() + 1, "--explain");
  return OutputOf(command, kTranslationMilliseconds).value_or("");
}

void PrintCommand(const Json::Value& entry, const VideoMetaData& film, const std::string& device) {
  std::cout << "\n"
            << entry["key"].asString() << " runs\n  " << entry["command"].asString() << "\n";
  if (const std::string command = Translated(entry, film, device); !command.empty()) {
    std::cout << "which becomes\n  " << command;
  }
}

void PrintForPeople(const Options& options, const VideoMetaData& film,
                    const Json::Value& document) {
  std::cout << film.GetFilePath() << "\n" << document["direct"]["why"].asString() << "\n\n";
  PrintProfiles(document["profiles"]);
  if (options.profile.empty()) {
    std::cout
        << "\n* is used unless another one is chosen. --profile KEY shows the command of one.\n";
    return;
  }
  for (const Json::Value& entry : document["profiles"]) {
    if (entry["method"] != "refused") {
      PrintCommand(entry, film, options.device);
    }
  }
}

int Run(const Options& options) {
  VideoMetaData film;
  const int loaded = LoadFilm(options.file, film);
  if (loaded != kOk) {
    return loaded;
  }
  const Json::Value document = Explain(options, film);
  if (document["profiles"].empty()) {
    Complain("this machine has no such profile");
    return kFailed;
  }
  if (options.json) {
    PrintJson(document);
  } else {
    PrintForPeople(options, film, document);
  }
  return kOk;
}

}  // namespace

void AddExplainCommand(CLI::App& app, int& exitCode) {
  auto options = std::make_shared<Options>();
  CLI::App* const command =
      app.add_subcommand("explain", "Show how a film would be played and why");
  command->add_option("file", options->file, "The film")->required()->type_name("FILE");
  command->add_option("--device", options->device, "The player: vlc, firefox, chromecast, ...")
      ->type_name("NAME");
  command->add_option("--user-agent", options->userAgent, "The player's User-Agent header")
      ->type_name("TEXT");
  command->add_option("--format", options->format, "Show only the profiles of this format")
      ->check(CLI::IsMember(webapi::Formats()));
  command->add_option("--profile", options->profile, "Show only this profile, with its command")
      ->type_name("KEY");
  command->add_option("--codecs", options->codecs, "Codecs that the player names: avc1,hvc1,...")
      ->type_name("NAMES");
  command->add_flag("--hdr", options->showsHighRange,
                    "The player's screen shows a high dynamic range");
  command->add_flag("--json", options->json, "Print the result as JSON");
  command->callback([options, &exitCode] { exitCode = Run(*options); });
}

}  // namespace mirevo
