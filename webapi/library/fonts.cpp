#include "webapi/library/fonts.h"

#include <algorithm>
#include <limits>

#include "metadata/attached_fonts.h"
#include "util/film_cache.h"
#include "util/json_utils.h"
#include "webapi/http/send_file.h"
#include "webapi/http/work.h"
#include "webapi/library/film_cache.h"
#include "webapi/library/media_library.h"

namespace webapi {
namespace {

using LibOrvoQMX::AttachedFont;

// A new name when the content changes.
constexpr char kKept[] = "fonts 1";

constexpr char kTypeLetters[] = "abcdefghijklmnopqrstuvwxyz/2";

// In the cache, an entry has its place in the film too.
constexpr char kPosition[] = "position";

Json::Value Describe(const AttachedFont& font) {
  Json::Value entry(Json::objectValue);
  entry["id"] = font.id;
  entry["name"] = font.name;
  entry["type"] = font.type;
  entry["size"] = static_cast<Json::Int64>(font.size);
  entry[kPosition] = static_cast<Json::Int64>(font.position);
  entry["families"] = Json::Value(Json::arrayValue);
  for (const std::string& family : font.families) {
    entry["families"].append(family);
  }
  return entry;
}

// A cached entry may be damaged.
bool IsFont(const Json::Value& entry, int64_t filmSize) {
  if (!entry.isObject() || !entry["id"].isInt() || !entry["name"].isString() ||
      !entry["type"].isString() || !entry["size"].isInt64() || !entry[kPosition].isInt64() ||
      !entry["families"].isArray()) {
    return false;
  }
  const int64_t position = entry[kPosition].asInt64();
  const int64_t size = entry["size"].asInt64();
  return position >= 0 && size > 0 && size <= filmSize && position <= filmSize - size &&
         entry["type"].asString().find_first_not_of(kTypeLetters) == std::string::npos;
}

bool AreFonts(const Json::Value& list, int64_t filmSize) {
  return list.isArray() && std::all_of(list.begin(), list.end(), [&](const Json::Value& entry) {
           return IsFont(entry, filmSize);
         });
}

// The fonts of a film, which are looked for once.
Json::Value FontsOf(const orvo::MediaFile& film) {
  const std::string kept = orvo::CachePath(film, kKept, ".json");
  Json::Value list;
  if (LibMirevo::ReadJsonFromFileWithoutLock(kept, list) && AreFonts(list, film.Status().st_size)) {
    return list;
  }
  const auto fonts = LibOrvoQMX::FindAttachedFonts(film);
  list = Json::Value(Json::arrayValue);
  if (!fonts) {
    return list;
  }
  for (const AttachedFont& font : *fonts) {
    list.append(Describe(font));
  }
  KeepInCache(kept, LibMirevo::FormatJson(list));
  return list;
}

Json::Value FindFont(const orvo::MediaFile& film, int64_t id) {
  const Json::Value fonts = FontsOf(film);
  const auto font = std::find_if(fonts.begin(), fonts.end(),
                                 [&](const Json::Value& one) { return one["id"].asInt64() == id; });
  return font == fonts.end() ? Json::Value::null : *font;
}

}  // namespace

Json::Value DescribeFonts(const orvo::MediaFile& film) {
  Json::Value list = FontsOf(film);
  for (Json::Value& font : list) {
    font.removeMember(kPosition);
  }
  return list;
}

Answer SendFont(const Request& request) {
  Answer refusal = Answer::Failure(kInternal);
  const auto film = OpenFilm(request.Text("path"), refusal);
  if (!film) {
    return refusal;
  }
  const auto id = request.Number("id", std::numeric_limits<int>::max());
  if (!id) {
    return Answer::Failure(kBadRequest, "The id must be a number.");
  }
  auto place = TakePlace(kFilmWork);
  if (!place) {
    return Answer::Failure(kBusy);
  }
  const Json::Value font = FindFont(*film, *id);
  place.reset();
  if (font.isNull()) {
    return Answer::Failure(kNotFound, "This film has no such font.");
  }
  const int64_t position = font[kPosition].asInt64();
  return SendPart(request, *film, {position, position + font["size"].asInt64() - 1},
                  font["type"].asString(), kKeepPicture);
}

}  // namespace webapi
