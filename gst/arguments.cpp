#include "gst/arguments.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <string_view>

#include "transcoder/option_values.h"

namespace orvo::gst {
namespace {

using transcoder::ParseSize;
using transcoder::ParseValue;
using transcoder::ValueKind;

constexpr int kMostTracks = 1000;
constexpr int kMostDescriptors = 1 << 20;
constexpr double kHighestFrameRate = 240;

bool ReadWhole(std::string_view text, int limit, int& value) {
  const char* const end = text.data() + text.size();
  const auto [rest, error] = std::from_chars(text.data(), end, value);
  return error == std::errc() && rest == end && value >= 0 && value < limit;
}

bool ReadStart(std::string_view text, Request& request) {
  const auto seconds = ParseValue(ValueKind::kSeconds, text);
  request.start = seconds.value_or(0);
  return seconds.has_value();
}

bool ReadFilm(std::string_view text, Request& request) {
  request.film = text;
  return !text.empty();
}

bool ReadOutput(std::string_view text, Request& request) {
  constexpr std::string_view kPrefix = "fd:";
  return text.substr(0, kPrefix.size()) == kPrefix &&
         ReadWhole(text.substr(kPrefix.size()), kMostDescriptors, request.output);
}

bool ReadVideoCodec(std::string_view text, Request& /*request*/) {
  return text == "h264";
}

bool ReadSoundCodec(std::string_view text, Request& request) {
  request.copiesSound = text == "copy";
  return text == "copy" || text == "aac";
}

bool ReadBits(std::string_view text, long& bits) {
  const auto rate = ParseValue(ValueKind::kBitRate, text);
  bits = static_cast<long>(rate.value_or(0));
  return rate.has_value();
}

bool ReadPictureBits(std::string_view text, Request& request) {
  return ReadBits(text, request.pictureBits);
}

bool ReadSoundBits(std::string_view text, Request& request) {
  return ReadBits(text, request.soundBits);
}

bool ReadSize(std::string_view text, Request& request) {
  const auto size = ParseSize(text);
  if (size) {
    request.width = size->width;
    request.height = size->height;
  }
  return size.has_value();
}

bool ReadFrameRate(std::string_view text, Request& request) {
  const char* const end = text.data() + text.size();
  const auto [rest, error] =
      std::from_chars(text.data(), end, request.frameRate, std::chars_format::fixed);
  return error == std::errc() && rest == end && request.frameRate >= 1 &&
         request.frameRate <= kHighestFrameRate;
}

bool ReadContainer(std::string_view text, Request& request) {
  request.container = text == "mp4" ? Container::kMp4 : Container::kTransportStream;
  return text == "mp4" || text == "mpegts";
}

bool ReadEncoders(std::string_view text, Request& request) {
  request.encoders = text == "hardware"   ? Encoders::kHardware
                     : text == "software" ? Encoders::kSoftware
                                          : Encoders::kAny;
  return request.encoders != Encoders::kAny || text == "any";
}

bool ReadTrack(std::string_view text, Request& request) {
  return ReadWhole(text, kMostTracks, request.soundTrack);
}

struct Option {
  std::string_view name;
  const char* wanted;
  bool (*read)(std::string_view value, Request& request);
};

constexpr auto kOptions = std::to_array<Option>({
    {"-s", "a number of seconds", ReadStart},
    {"-i", "the path of a film", ReadFilm},
    {"-o", "fd:NUMBER", ReadOutput},
    {"--vcodec", "h264", ReadVideoCodec},
    {"--acodec", "aac or copy", ReadSoundCodec},
    {"--vb", "bits a second", ReadPictureBits},
    {"--ab", "bits a second", ReadSoundBits},
    {"--size", "WIDTHxHEIGHT", ReadSize},
    {"--fps", "pictures a second", ReadFrameRate},
    {"--mux", "mpegts or mp4", ReadContainer},
    {"--aidx", "the number of a sound track", ReadTrack},
    {"--encoders", "any, hardware or software", ReadEncoders},
});

constexpr std::string_view kFilmClock = "--shiftpts";

const Option* FindOption(std::string_view name) {
  const auto row = std::find_if(kOptions.begin(), kOptions.end(),
                                [&](const Option& option) { return option.name == name; });
  return row == kOptions.end() ? nullptr : &*row;
}

std::string ReadOption(const Option& option, const std::string& value, Request& request) {
  return option.read(value, request)
             ? ""
             : std::string(option.name) + " takes " + option.wanted + ", not \"" + value + "\"";
}

std::string ReadAll(const std::vector<std::string>& arguments, Request& request) {
  for (size_t i = 0; i < arguments.size(); ++i) {
    if (arguments[i] == kFilmClock) {
      request.keepsFilmClock = true;
      continue;
    }
    const Option* const option = FindOption(arguments[i]);
    if (option == nullptr) {
      return "unknown option \"" + arguments[i] + "\"";
    }
    if (i + 1 == arguments.size()) {
      return "no value for " + arguments[i];
    }
    const std::string error = ReadOption(*option, arguments[++i], request);
    if (!error.empty()) {
      return error;
    }
  }
  return "";
}

std::string Missing(const Request& request) {
  if (request.film.empty()) {
    return "no film: -i is missing";
  }
  return request.output < 0 ? "no output: -o is missing" : "";
}

}  // namespace

Reading ReadArguments(const std::vector<std::string>& arguments) {
  Reading reading;
  reading.error = ReadAll(arguments, reading.request);
  if (reading.error.empty()) {
    reading.error = Missing(reading.request);
  }
  return reading;
}

}  // namespace orvo::gst
