#include "stream/hls/subtitle_tracks.h"

#include <algorithm>
#include <string_view>

#include "playlist/address_text.h"
#include "util/subtitle.h"

namespace LibOrvoQMX {
namespace {

constexpr std::string_view kShooter = "shooter-";

bool IsLanguageCode(const std::string& language) {
  return language.size() == 3 && std::all_of(language.begin(), language.end(), IsAsciiLetter);
}

bool IsShooter(const std::string& language) {
  return language.size() == kShooter.size() + 1 && language.rfind(kShooter, 0) == 0 &&
         IsAsciiDigit(language.back());
}

// A member of a track or a path; "" if the member has no text.
std::string TextOf(const Json::Value& description, const char* name) {
  return description.isObject() ? AddressText(description[name]) : "";
}

std::string ValidateLanguage(const Json::Value& description, const std::string& fallback) {
  if (!description.isObject() || !description["language"].isString()) {
    return fallback;
  }
  const std::string language = description["language"].asString();
  return IsLanguageCode(language) || IsShooter(language) ? language : fallback;
}

}  // namespace

SubtitleList SubtitlesOf(const QMXMetaData& film, const std::string& subtitleId) {
  if (subtitleId.empty()) {
    return {};
  }
  if (subtitleId != "all") {
    return {{subtitleId, "Undefined"}};
  }
  SubtitleList all = SubtitlesBeside(film);
  const SubtitleList internal = SubtitlesIn(film);
  all.insert(all.end(), internal.begin(), internal.end());
  return all;
}

SubtitleList SubtitlesBeside(const QMXMetaData& film) {
  Json::Value files(Json::arrayValue);
  libmrv::subtitle::GetExternalSubtitle(film.GetFilePath(), files);
  SubtitleList list;
  for (const Json::Value& file : files) {
    const std::string path = file.asString();
    list.emplace_back(path, ValidateLanguage(libmrv::subtitle::PathInfo(path), "External"));
  }
  return list;
}

SubtitleList SubtitlesIn(const QMXMetaData& film) {
  Json::Value tracks;
  if (!libmrv::subtitle::IsAllowEmbaddedSubtitleContiner(film.GetContainer()) ||
      !film.GetSubtitleTrackInfo(tracks)) {
    return {};
  }
  SubtitleList list;
  for (const Json::Value& track : tracks) {
    if (libmrv::subtitle::IsTextBaseSubtitleCodec(TextOf(track, "codec"))) {
      list.emplace_back(TextOf(track, "track"), ValidateLanguage(track, "Internal"));
    }
  }
  return list;
}

}  // namespace LibOrvoQMX
