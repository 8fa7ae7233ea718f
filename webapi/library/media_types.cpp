#include "webapi/library/media_types.h"

#include <algorithm>
#include <array>
#include <string_view>

#include "util/lower_case.h"

namespace webapi {
namespace {

constexpr char kAnyType[] = "application/octet-stream";

struct MediaType {
  std::string_view ending;
  const char* type;
};

// What lies beside films.
constexpr std::array kCompanions = {
    MediaType{"srt", "text/plain"}, MediaType{"ass", "text/plain"},  MediaType{"ssa", "text/plain"},
    MediaType{"smi", "text/plain"}, MediaType{"vtt", "text/vtt"},    MediaType{"sub", kAnyType},
    MediaType{"idx", "text/plain"}, MediaType{"sup", kAnyType},      MediaType{"nfo", "text/plain"},
    MediaType{"jpg", "image/jpeg"}, MediaType{"jpeg", "image/jpeg"}, MediaType{"png", "image/png"},
    MediaType{"webp", "image/webp"}};

// The types that programs ask for; all other films are bytes to them.
constexpr std::array kMediaTypes = {
    MediaType{"mkv", "video/x-matroska"}, MediaType{"webm", "video/webm"},
    MediaType{"mp4", "video/mp4"},        MediaType{"m4v", "video/mp4"},
    MediaType{"mov", "video/quicktime"},  MediaType{"avi", "video/x-msvideo"},
    MediaType{"ts", "video/mp2t"},        MediaType{"m2ts", "video/mp2t"},
    MediaType{"mts", "video/mp2t"},       MediaType{"mpg", "video/mpeg"},
    MediaType{"mpeg", "video/mpeg"},      MediaType{"vob", "video/mpeg"},
    MediaType{"wmv", "video/x-ms-wmv"},   MediaType{"flv", "video/x-flv"},
    MediaType{"ogv", "video/ogg"},        MediaType{"mp3", "audio/mpeg"},
    MediaType{"flac", "audio/flac"},      MediaType{"m4a", "audio/mp4"},
    MediaType{"ogg", "audio/ogg"},        MediaType{"oga", "audio/ogg"},
    MediaType{"opus", "audio/ogg"},       MediaType{"wav", "audio/wav"},
    MediaType{"wma", "audio/x-ms-wma"},   MediaType{"aac", "audio/aac"}};

template <typename Types>
const char* FindType(const Types& types, const std::string& name) {
  const auto dot = name.rfind('.');
  const std::string ending = dot == std::string::npos ? "" : orvo::LowerCase(name.substr(dot + 1));
  const auto found = std::find_if(types.begin(), types.end(),
                                  [&](const MediaType& row) { return row.ending == ending; });
  return found == types.end() ? nullptr : found->type;
}

}  // namespace

bool IsCompanion(const std::string& name) {
  return FindType(kCompanions, name) != nullptr;
}

std::string MediaTypeOf(const std::string& name) {
  const char* const companion = FindType(kCompanions, name);
  const char* const type = companion != nullptr ? companion : FindType(kMediaTypes, name);
  return type != nullptr ? type : kAnyType;
}

}  // namespace webapi
