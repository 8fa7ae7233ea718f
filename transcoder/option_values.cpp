#include "transcoder/option_values.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>

#include "transcoder/lengths.h"

namespace orvo::transcoder {
namespace {

constexpr double kLongestFilm = 100 * 3600;  // seconds
constexpr double kMostNumbers = 1'000'000;
constexpr double kHighestBitRate = 1e9;
constexpr int kLongestSide = 16384;  // pixels: what H.264 can say

using Number = std::optional<double>;

// Decimal digits with an optional sign and fraction: what FFmpeg takes everywhere.
Number ParseNumber(std::string_view text) {
  double number = 0;
  const char* const end = text.data() + text.size();
  const auto [rest, error] = std::from_chars(text.data(), end, number, std::chars_format::fixed);
  const bool whole = error == std::errc() && rest == end && std::isfinite(number);
  return whole ? Number(number) : std::nullopt;
}

Number ParseInteger(std::string_view text) {
  long number = 0;
  const char* const end = text.data() + text.size();
  const auto [rest, error] = std::from_chars(text.data(), end, number);
  return error == std::errc() && rest == end ? Number(static_cast<double>(number)) : std::nullopt;
}

// Two parts of a text with `separator` between them; nothing without one.
using Parts = std::pair<std::string_view, std::string_view>;
std::optional<Parts> Split(std::string_view text, size_t separator) {
  return separator == std::string_view::npos
             ? std::nullopt
             : std::optional(Parts(text.substr(0, separator), text.substr(separator + 1)));
}

// "MINUTES:SECONDS", or with hours as a third part in front.
Number ParseClock(std::string_view text) {
  const auto parts = Split(text, text.rfind(':'));
  const auto hours = Split(parts->first, parts->first.find(':'));
  const Number whole = hours ? ParseInteger(hours->first) : Number(0);
  const Number minutes = ParseInteger(hours ? hours->second : parts->first);
  const Number seconds = ParseNumber(parts->second);
  const bool valid = whole && minutes && seconds && *seconds >= 0 && *seconds < 60 &&
                     text.find('-') == std::string_view::npos;
  return valid ? Number((*whole * 60 + *minutes) * 60 + *seconds) : std::nullopt;
}

Number ParseTime(std::string_view text) {
  return text.find(':') == std::string_view::npos ? ParseNumber(text) : ParseClock(text);
}

Number ParseMilliseconds(std::string_view text) {
  const Number number = ParseInteger(text);
  return number ? Number(*number / 1000) : std::nullopt;
}

double Multiplier(char unit) {
  return unit == 'k' ? 1e3 : unit == 'M' ? 1e6 : 1;
}

Number ParseBitRate(std::string_view text) {
  const double multiplier = text.empty() ? 1 : Multiplier(text.back());
  const Number number = ParseInteger(text.substr(0, text.size() - (multiplier > 1 ? 1 : 0)));
  return number ? Number(*number * multiplier) : std::nullopt;
}

Number ParseAspect(std::string_view text) {
  const auto parts = Split(text, text.find(':'));
  if (!parts) {
    return ParseNumber(text);
  }
  const Number width = ParseInteger(parts->first);
  const Number height = ParseInteger(parts->second);
  return width && height && *width > 0 && *height > 0 ? Number(*width / *height) : std::nullopt;
}

Number ParseSound(std::string_view text) {
  constexpr std::array<std::string_view, 3> kNames = {"stereo", "night", "original"};
  const auto name = std::find(kNames.begin(), kNames.end(), text);
  return name == kNames.end() ? Number() : Number(name - kNames.begin());
}

struct Rule {
  ValueKind kind;
  Number (*parse)(std::string_view text);
  double least;
  double most;
  const char* wanted;
};

constexpr char kPlace[] = "a time in the film";

constexpr auto kRules = std::to_array<Rule>({
    {ValueKind::kTime, ParseTime, 0, kLongestFilm, kPlace},
    {ValueKind::kSeconds, ParseNumber, 0, kLongestFilm, kPlace},
    {ValueKind::kMilliseconds, ParseMilliseconds, 0, kLongestFilm, "milliseconds of the film"},
    {ValueKind::kDifference, ParseNumber, -kLongestFilm, kLongestFilm, "seconds"},
    {ValueKind::kLength, ParseNumber, kShortestLength, kLongestLength, "0.5 to 600 seconds"},
    {ValueKind::kNumber, ParseInteger, 0, kMostNumbers, "the number of a segment"},
    {ValueKind::kFlag, ParseInteger, 0, 1, "0 or 1"},
    {ValueKind::kBitRate, ParseBitRate, 1, kHighestBitRate, "bits a second"},
    {ValueKind::kSampleRate, ParseInteger, 1000, 768000, "samples a second"},
    {ValueKind::kChannels, ParseInteger, 1, 64, "a number of channels"},
    {ValueKind::kAspect, ParseAspect, 0.01, 100, "the shape of a picture"},
    {ValueKind::kSound, ParseSound, 0, 2, "stereo, night or original"},
});

const Rule* FindRule(ValueKind kind) {
  const auto row = std::find_if(kRules.begin(), kRules.end(),
                                [&](const Rule& rule) { return rule.kind == kind; });
  return row == kRules.end() ? nullptr : &*row;
}

// The names that FFmpeg has for sizes, as far as profiles use them.
struct NamedSize {
  std::string_view name;
  PictureSize size;
};

constexpr auto kNamedSizes = std::to_array<NamedSize>({
    {"ntsc", {720, 480}},
    {"pal", {720, 576}},
    {"qcif", {176, 144}},
    {"cif", {352, 288}},
    {"4cif", {704, 576}},
    {"qvga", {320, 240}},
    {"vga", {640, 480}},
    {"svga", {800, 600}},
    {"xga", {1024, 768}},
    {"nhd", {640, 360}},
    {"qhd", {960, 540}},
    {"wvga", {852, 480}},
    {"hd480", {852, 480}},
    {"hd720", {1280, 720}},
    {"hd1080", {1920, 1080}},
    {"2kdci", {2048, 1080}},
    {"uhd2160", {3840, 2160}},
    {"4kdci", {4096, 2160}},
});

bool IsSide(const Number& side) {
  return side && *side >= 1 && *side <= kLongestSide;
}

}  // namespace

std::optional<double> ParseValue(ValueKind kind, std::string_view text) {
  const Rule* const rule = FindRule(kind);
  const Number number = rule == nullptr ? std::nullopt : rule->parse(text);
  const bool inRange = number && *number >= rule->least && *number <= rule->most;
  return inRange ? number : std::nullopt;
}

std::optional<PictureSize> ParseSize(std::string_view text) {
  const auto named = std::find_if(kNamedSizes.begin(), kNamedSizes.end(),
                                  [&](const NamedSize& row) { return row.name == text; });
  if (named != kNamedSizes.end()) {
    return named->size;
  }
  const auto parts = Split(text, text.find('x'));
  const Number width = parts ? ParseInteger(parts->first) : std::nullopt;
  const Number height = parts ? ParseInteger(parts->second) : std::nullopt;
  if (!IsSide(width) || !IsSide(height)) {
    return std::nullopt;
  }
  return PictureSize{static_cast<int>(*width), static_cast<int>(*height)};
}

std::string ValueComplaint(const std::string& option, ValueKind kind, std::string_view text) {
  const bool isSize = kind == ValueKind::kSize;
  if (kind == ValueKind::kAny ||
      (isSize ? ParseSize(text).has_value() : ParseValue(kind, text).has_value())) {
    return "";
  }
  const char* const wanted = isSize ? "the size of a picture" : FindRule(kind)->wanted;
  return option + " takes " + wanted + ", not \"" + std::string(text) + "\"";
}

}  // namespace orvo::transcoder
