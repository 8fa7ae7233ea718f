#include "mirevo/probe_command.h"

#include <iostream>
#include <memory>

#include "mirevo/exit_codes.h"
#include "mirevo/film_argument.h"
#include "mirevo/output.h"

namespace mirevo {
namespace {

using Rows = std::vector<std::vector<std::string>>;

struct Options {
  std::string file;
  bool table = false;
  bool json = false;  // the default anyway
};

// The library's name of a track's codec, or FFmpeg's name if the library has none.
std::string CodecOf(const Json::Value& track) {
  const std::string name = track["codec"].asString();
  return name.empty() ? track["codec_raw"].asString() : name;
}

std::string Rate(unsigned bitsPerSecond) {
  return bitsPerSecond == 0 ? "" : std::to_string(bitsPerSecond / 1000) + " kbit/s";
}

std::string DescribeVideo(const Json::Value& track) {
  return track["resolutionx"].asString() + "x" + track["resolutiony"].asString() + " " +
         track["pix_fmt"].asString() + " " + track["profile"].asString();
}

std::string DescribeAudio(const Json::Value& track) {
  return track["channel"].asString() + " channels " + track["sample_rate"].asString() + " Hz";
}

std::string DescribeSubtitle(const Json::Value& track) {
  return track["title"].asString();
}

struct TrackKind {
  const char* key;
  std::string (*describe)(const Json::Value& track);
};
constexpr TrackKind kTrackKinds[] = {
    {"video", DescribeVideo}, {"audio", DescribeAudio}, {"subtitle", DescribeSubtitle}};

Rows Tracks(const Json::Value& document) {
  Rows rows = {{"TRACK", "KIND", "CODEC", "LANGUAGE", "DETAILS"}};
  for (const TrackKind& kind : kTrackKinds) {
    for (const Json::Value& track : document["track_info"][kind.key]) {
      rows.push_back({track["track"].asString(), kind.key, CodecOf(track),
                      track["language"].asString(), kind.describe(track)});
    }
  }
  return rows;
}

void PrintForPeople(const LibOrvoQMX::VideoMetaData& film) {
  PrintTable({{"File", film.GetFilePath()},
              {"Container", film.GetContainer()},
              {"Duration", Clock(film.GetDuration())},
              {"Size", Size(film.GetFileSize())},
              {"Bit rate", Rate(film.GetBitrate())}});
  std::cout << "\n";
  PrintTable(Tracks(film.GetDocument()));
}

int Probe(const Options& options) {
  LibOrvoQMX::VideoMetaData film;
  const int loaded = LoadFilm(options.file, film);
  if (loaded != kOk) {
    return loaded;
  }
  if (options.table) {
    PrintForPeople(film);
  } else {
    PrintJson(film.GetDocument());
  }
  return kOk;
}

}  // namespace

void AddProbeCommand(CLI::App& app, int& exitCode) {
  auto options = std::make_shared<Options>();
  CLI::App* const command =
      app.add_subcommand("probe", "Print the tracks and properties of a film");
  command->add_option("file", options->file, "The film")->required()->type_name("FILE");
  CLI::Option* const table = command->add_flag("--table", options->table, "Print a table");
  command->add_flag("--json", options->json, "Print JSON; this is the default")->excludes(table);
  command->callback([options, &exitCode] { exitCode = Probe(*options); });
}

}  // namespace mirevo
