#include "webapi/library/film_card.h"

#include <array>
#include <filesystem>

#include "metadata/video_metadata.h"
#include "util/film_cache.h"
#include "util/json_utils.h"
#include "webapi/http/work.h"
#include "webapi/library/film_cache.h"
#include "webapi/library/film_notes.h"
#include "webapi/library/film_traits.h"
#include "webapi/library/folder_card.h"
#include "webapi/library/media_library.h"

namespace webapi {
namespace {

using orvo::CachePath;

using LibOrvoQMX::VideoMetaData;

// A new name when the facts change.
constexpr char kCard[] = "card 2";
constexpr std::array kTags = {"title", "artist", "album"};

// Returns an empty object for a file that is not a film. The cache stores this result too.
Json::Value Probe(const orvo::MediaFile& file) {
  VideoMetaData film;
  Json::Value facts(Json::objectValue);
  if (film.LoadFile(file) && (HasPictures(film) || HasSound(film))) {
    facts["music"] = IsMusic(film);
    facts["duration"] = film.GetDuration();
    facts["width"] = film.GetVideoDisplayX();
    facts["height"] = film.GetVideoDisplayY();
    facts["video"] = film.GetVideoCodecName();
    facts["audio"] = film.GetAudioCodecName();
    const Json::Value& tags = film.GetDocument()["tags"];
    for (const char* tag : kTags) {
      facts[tag] = tags[tag].isString() && IsUtf8(tags[tag].asString()) ? tags[tag] : "";
    }
  }
  return facts;
}

// Does a cached value, which may be damaged, have the form of facts?
bool AreFacts(const Json::Value& facts) {
  return facts.isObject() &&
         (facts.empty() ||
          (facts["duration"].isUInt() && facts["width"].isUInt() && facts["height"].isUInt() &&
           facts["title"].isString() && facts["artist"].isString() && facts["album"].isString() &&
           facts["video"].isString() && facts["audio"].isString() && facts["music"].isBool()));
}

bool Load(const std::string& kept, Json::Value& facts) {
  return LibMirevo::ReadJsonFromFileWithoutLock(kept, facts) && AreFacts(facts);
}

bool LoadOrProbe(const orvo::MediaFile& film, Json::Value& facts) {
  const std::string kept = CachePath(film, kCard, ".json");
  if (Load(kept, facts)) {
    return true;
  }
  const auto place = TakePlace(kTileWork);
  // Another request may have made the same file in the meantime.
  if (place && !Load(kept, facts)) {
    facts = Probe(film);
    KeepInCache(kept, LibMirevo::FormatJson(facts));
  }
  return place.has_value();
}

}  // namespace

std::optional<Json::Value> FactsOf(const orvo::MediaFile& film, Answer& refusal) {
  Json::Value facts;
  if (!LoadOrProbe(film, facts)) {
    refusal = Answer::Failure(kBusy);
    return std::nullopt;
  }
  if (facts.empty()) {
    refusal = Answer::Failure("TransVideoNotSupported",
                              film.Status().st_size == 0
                                  ? "The file is empty."
                                  : "The file is damaged or incomplete, or it is not a film.");
    return std::nullopt;
  }
  return facts;
}

std::optional<Json::Value> KnownFacts(const orvo::MediaFile& film) {
  Json::Value facts;
  const bool isKnown = film.IsOpen() && Load(CachePath(film, kCard, ".json"), facts);
  return isKnown && !facts.empty() ? std::optional(std::move(facts)) : std::nullopt;
}

std::optional<int64_t> KnownLength(const orvo::MediaFile& film) {
  const auto facts = KnownFacts(film);
  return facts ? std::optional<int64_t>((*facts)["duration"].asUInt()) : std::nullopt;
}

Answer DescribeCard(const Request& request) {
  Answer refusal = Answer::Failure(kInternal);
  const auto path = ResolveMediaPath(request.Text("path"), refusal);
  std::error_code failure;
  if (path && std::filesystem::is_directory(*path, failure)) {
    return DescribeFolderCard(request, *path);
  }
  const auto film = OpenFilm(request.Text("path"), refusal);
  const auto facts = film ? FactsOf(*film, refusal) : std::nullopt;
  if (!facts) {
    return refusal;
  }
  Json::Value card = *facts;
  card["notes"] = NotesBeside(*film);
  return Answer::Success(card);
}

}  // namespace webapi
