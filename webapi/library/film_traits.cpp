#include "webapi/library/film_traits.h"

#include <algorithm>
#include <array>

#include "transcoder/filters.h"

namespace webapi {
namespace {

using LibOrvoQMX::VideoMetaData;

struct RangeName {
  const char* word;
  const char* name;
};
constexpr std::array kRangeNames = {
    RangeName{"hdr10", "HDR10"},
    RangeName{"hlg", "HLG"},
    RangeName{"dolby_vision", "Dolby Vision"},
};

}  // namespace

bool HasPictures(const VideoMetaData& film) {
  return film.GetVideoResolutionX() > 0 && film.GetVideo(0)["attached_pic"] != true;
}

bool HasSound(const VideoMetaData& film) {
  return !film.GetAudio(0).isNull();
}

bool IsMusic(const VideoMetaData& film) {
  return HasSound(film) && !HasPictures(film);
}

std::string HighRangeOf(const VideoMetaData& film) {
  const std::string word = film.GetFirstVideoMemberString("dynamic_range");
  const auto found = std::find_if(kRangeNames.begin(), kRangeNames.end(),
                                  [&](const RangeName& row) { return word == row.word; });
  return found == kRangeNames.end() ? "" : found->name;
}

std::string ToneMappingOf(const VideoMetaData& film) {
  const Json::Value colors = film.GetVideo(0)["colors"];
  if (!colors.isObject()) {
    return "";
  }
  const auto range =
      orvo::transcoder::HighRangeOf({colors["transfer"].asInt(), colors["primaries"].asInt(),
                                     colors["matrix"].asInt(), colors["full_range"].asBool()});
  return range ? orvo::transcoder::ToneMapping(*range) : "";
}

}  // namespace webapi
