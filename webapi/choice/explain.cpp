#include "webapi/choice/explain.h"

#include <unistd.h>

#include <algorithm>
#include <array>
#include <string_view>
#include <utility>

#include "metadata/qmxmetadata.h"
#include "state/stream_directory.h"
#include "stream/http_live_stream.h"
#include "stream/http_stream.h"
#include "stream/smooth_stream.h"
#include "stream/webm_stream.h"
#include "transcoder/shell_line.h"
#include "util/qmxutils.h"
#include "webapi/access/ticket.h"
#include "webapi/choice/client_support.h"
#include "webapi/choice/engine_rows.h"
#include "webapi/http/number.h"
#include "webapi/library/film_traits.h"

namespace webapi {
namespace {

using LibOrvoQMX::QMXMetaData;
using LibOrvoQMX::StreamDirectory;
using LibOrvoQMX::VideoMetaData;
using Command = std::vector<std::string>;

constexpr char kNoId[] = "STREAM_ID";
constexpr char kFirstSegment[] = "0";
// Encoders round the sides of a picture, so a quality of the film's own size may be a little
// larger.
constexpr double kRounding = 1.05;

Command HlsCommand(const QMXMetaData& plan) {
  return LibOrvoQMX::HttpLiveStream(plan).CommandLine(kFirstSegment,
                                                      StreamDirectory("HLS", kNoId).Path());
}

Command HttpCommand(const QMXMetaData& plan) {
  const LibOrvoQMX::HttpStream stream(plan);
  return stream.CommandLine(stream.GetTranscoder(), STDOUT_FILENO);
}

Command WebmCommand(const QMXMetaData& plan) {
  return LibOrvoQMX::WebMStream(plan).CommandLine(STDOUT_FILENO);
}

Command SmoothCommand(const QMXMetaData& plan) {
  return LibOrvoQMX::SmoothStream(plan).CommandLine(StreamDirectory("SS", kNoId).Path());
}

struct Format {
  const char* name;
  const char* contentType;  // null if it depends on the profile
  Command (*command)(const QMXMetaData& plan);
};
constexpr std::array kFormats = {
    Format{"hls", "application/vnd.apple.mpegurl", HlsCommand},
    Format{"http", nullptr, HttpCommand},
    Format{"webm", nullptr, WebmCommand},
    Format{"ss", "application/vnd.ms-sstr+xml", SmoothCommand},
};

const Format* FindFormat(const std::string& name) {
  const auto found = std::find_if(kFormats.begin(), kFormats.end(),
                                  [&](const Format& format) { return name == format.name; });
  return found == kFormats.end() ? nullptr : found;
}

// The value after the first of an option's spellings; "" if the option is missing.
std::string ValueOf(const Command& command, const std::string& option,
                    const std::string& other = "") {
  const auto found = std::find_if(command.begin(), command.end(), [&](const std::string& argument) {
    return argument == option || (!other.empty() && argument == other);
  });
  return found == command.end() || found + 1 == command.end() ? "" : *(found + 1);
}

// The number at the beginning of a text; 0 if there is none.
unsigned Number(std::string_view text) {
  return static_cast<unsigned>(TakeNumber(text).value_or(0));
}

// Reads "1200k" or "1200000" as bit/s; 0 if it is not a number.
unsigned BitRate(std::string_view text) {
  const unsigned rate = Number(text);
  return !text.empty() && text.back() == 'k' ? rate * 1000 : rate;
}

// The size and the bit rate of the result: those in the command, else those of the film.
void DescribePicture(const Command& command, const VideoMetaData& film, Json::Value& entry) {
  const unsigned sound = BitRate(ValueOf(command, "-ab", "--ab"));
  if (IsMusic(film)) {
    entry["width"] = entry["height"] = 0;
    entry["bit_rate"] = sound;
    return;
  }
  const Command size = LibOrvoQMX::StringExplode(ValueOf(command, "-s"), "x");
  const bool isAsked = size.size() == 2;
  entry["width"] = isAsked ? Number(size[0]) : film.GetVideoResolutionX();
  entry["height"] = isAsked ? Number(size[1]) : film.GetVideoResolutionY();
  const unsigned video = BitRate(ValueOf(command, "-vb", "--vb"));
  entry["bit_rate"] = video != 0 ? video + sound : film.GetBitrate();
}

Json::Value Explain(const Format& format, const JudgedProfile& judged, const VideoMetaData& film,
                    const std::string& device) {
  const auto& [profile, verdict, speed] = judged;
  Json::Value entry(Json::objectValue);
  entry["key"] = profile.key;
  entry["format"] = format.name;
  entry["content_type"] =
      format.contentType != nullptr ? format.contentType : ContentTypeOf(profile);
  entry["method"] = verdict.method;
  entry["why"] = verdict.why;
  if (verdict.method == "refused") {
    entry["reason"] = verdict.refusal;
    entry["width"] = entry["height"] = entry["bit_rate"] = 0;
    entry["command"] = "";
    return entry;
  }
  const Command command = CommandOf(format.name, profile, film, device);
  DescribePicture(command, film, entry);
  if (speed > 0) {
    entry["speed"] = speed;
  }
  if (verdict.method == "transcode" && RunsOnHardware(profile.value)) {
    entry["hardware"] = true;
  }
  entry["command"] = orvo::transcoder::ShellLine(command);
  return entry;
}

// Is the picture larger than the film's? It fits into the size that the profile names, whichever
// way it stands.
bool Enlarges(const Json::Value& entry, const VideoMetaData& film) {
  const auto sides = [](unsigned a, unsigned b) {
    return std::pair(std::min(a, b), std::max(a, b));
  };
  const auto [shorter, longer] = sides(entry["width"].asUInt(), entry["height"].asUInt());
  const auto [filmShorter, filmLonger] =
      sides(film.GetVideoResolutionX(), film.GetVideoResolutionY());
  return shorter > kRounding * filmShorter && longer > kRounding * filmLonger;
}

void ExplainFormat(const Format& format, const VideoMetaData& film, const std::string& device,
                   Json::Value& list) {
  std::vector<JudgedProfile> profiles = JudgeProfiles(format.name, film);
  const JudgedProfile* const chosen = ChooseProfile(format.name, profiles, film);
  for (const JudgedProfile& profile : profiles) {
    Json::Value entry = Explain(format, profile, film, device);
    entry["default"] = &profile == chosen;
    list.append(std::move(entry));
  }
}

}  // namespace

std::vector<std::string> Formats() {
  std::vector<std::string> names(kFormats.size());
  std::transform(kFormats.begin(), kFormats.end(), names.begin(),
                 [](const Format& format) { return format.name; });
  return names;
}

Command CommandOf(const std::string& format, const Profile& profile, const VideoMetaData& film,
                  const std::string& device) {
  const Format* const row = FindFormat(format);
  return row == nullptr ? Command()
                        : row->command(QMXMetaData::Plan(film, profile.key, profile.value, device));
}

Json::Value ExplainProfiles(const VideoMetaData& film, const std::string& device,
                            const std::string& format) {
  Json::Value list(Json::arrayValue);
  for (const Format& row : kFormats) {
    if (format.empty() || format == row.name) {
      ExplainFormat(row, film, device, list);
    }
  }
  return list;
}

Json::Value Offers(const Json::Value& profiles, const VideoMetaData& film) {
  Json::Value offers(Json::arrayValue);
  for (const Json::Value& entry : profiles) {
    const bool isWorthIt = !IsMusic(film) && !Enlarges(entry, film);
    if (entry["default"].asBool() || entry["method"] == "refused" || isWorthIt) {
      offers.append(entry);
    }
  }
  return offers;
}

Json::Value ExplainDirect(const VideoMetaData& film, const Client& client) {
  const DirectVerdict verdict = JudgeDirect(film, client);
  Json::Value entry(Json::objectValue);
  entry["fits"] = verdict.fits;
  entry["why"] = verdict.why;
  entry["content_type"] = verdict.contentType;
  return entry;
}

}  // namespace webapi
