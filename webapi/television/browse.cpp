#include "webapi/television/browse.h"

#include <sys/stat.h>

#include <algorithm>
#include <chrono>
#include <ctime>
#include <filesystem>
#include <limits>
#include <optional>
#include <string>
#include <vector>

#include "catalog/catalog.h"
#include "platform/media_file.h"
#include "platform/plat.h"
#include "util/media_names.h"
#include "webapi/library/film_card.h"
#include "webapi/library/film_notes.h"
#include "webapi/library/film_title.h"
#include "webapi/library/media_library.h"
#include "webapi/television/object_id.h"
#include "webapi/television/resources.h"
#include "webapi/television/television.h"

namespace webapi {
namespace {

namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;

constexpr int64_t kAll = std::numeric_limits<int64_t>::max();
constexpr int64_t kLargestNumber = std::numeric_limits<uint32_t>::max();
constexpr char kTopTitle[] = "Mirevo";
// Televisions give up after about ten seconds. What is not known by then is left out.
constexpr std::chrono::seconds kPatience(4);
// The catalog writes here when a media folder changes.
constexpr char kCatalogLog[] = "/var/packages/Mirevo/cache/catalog/films.db-wal";

// What an object stands for.
struct Place {
  std::string path;  // "" for the top
  struct stat status {};

  bool IsFolder() const { return S_ISDIR(status.st_mode); }
};

// The text as XML can hold it: XML has no control characters, and JSON only UTF-8.
std::string Shown(const std::string& text) {
  const bool isText = IsUtf8(text);
  std::string shown;
  for (const char c : text) {
    const auto byte = static_cast<unsigned char>(c);
    shown += byte < ' ' || byte == 0x7f || (byte > 0x7f && !isText) ? '?' : c;
  }
  return shown;
}

// The only folder of the library, which then is the top itself; "" if there are several.
std::string OnlyFolder(const std::vector<std::string>& roots) {
  std::error_code ignored;
  return roots.size() == 1 && fs::is_directory(roots.front(), ignored) ? roots.front() : "";
}

uint32_t Number(time_t time) {
  return static_cast<uint32_t>(time);
}

class Browser {
 public:
  explicit Browser(const Admission& admission) : admission_(admission) {}

  // The object with this id; nothing if there is none that televisions see.
  std::optional<Place> Find(const std::string& id) const {
    if (id == kTopId) {
      return Top();
    }
    const auto path = PathOfObject(admission_, id);
    return path && *path == orvo::RealPath(*path) && MaySee(*path) ? PlaceAt(*path) : std::nullopt;
  }

  // All objects in a folder.
  std::vector<Place> ChildrenOf(const Place& folder) const {
    const std::string path = folder.path.empty() ? OnlyFolder(roots_) : folder.path;
    return path.empty() ? Roots() : EntriesOf(path);
  }

  Json::Value Describe(const Place& place) const {
    Json::Value object(Json::objectValue);
    object["id"] = IdOf(place.path);
    object["parent"] = ParentOf(place.path);
    object["title"] = place.path.empty() ? kTopTitle : Shown(NameOf(place.path));
    if (place.IsFolder()) {
      object["kind"] = "folder";
    } else {
      DescribeFilm(place, object);
    }
    return object;
  }

  // A number that changes with the folder; that of the top changes with all of them.
  static uint32_t UpdateOf(const Place& place) {
    struct stat log {};
    const bool isKnown =
        place.path.empty() && stat(orvo::SystemPath(kCatalogLog).c_str(), &log) == 0;
    return Number(isKnown ? std::max(log.st_mtime, place.status.st_mtime) : place.status.st_mtime);
  }

 private:
  static std::string NameOf(const std::string& path) {
    return path == "/" ? path : fs::path(path).filename().string();
  }

  // The folder above all, which is as new as the newest media folder.
  Place Top() const {
    Place top;
    top.status.st_mode = S_IFDIR;
    for (const std::string& root : roots_) {
      struct stat status {};
      if (stat(root.c_str(), &status) == 0) {
        top.status.st_mtime = std::max(top.status.st_mtime, status.st_mtime);
      }
    }
    return top;
  }

  // Nothing if televisions do not see what is there.
  std::optional<Place> PlaceAt(const std::string& path) const {
    const auto status = StatusInRoots(roots_, path);
    const bool isRoot = std::find(roots_.begin(), roots_.end(), path) != roots_.end();
    const bool isShown = status && (S_ISDIR(status->st_mode) || S_ISREG(status->st_mode)) &&
                         (isRoot || catalog::IsShown(NameOf(path), S_ISDIR(status->st_mode)));
    return isShown ? std::optional(Place{path, *status}) : std::nullopt;
  }

  std::vector<Place> Roots() const {
    std::vector<Place> places;
    for (const std::string& root : roots_) {
      if (const auto place = PlaceAt(root)) {
        places.push_back(*place);
      }
    }
    return places;
  }

  // Links keep their own name for people; the id is that of what they lead to.
  std::vector<Place> EntriesOf(const std::string& folder) const {
    std::vector<Place> places;
    const auto page = catalog::CatalogReader().Read(folder, 0, kAll);
    for (const catalog::Entry& entry : page ? page->entries : std::vector<catalog::Entry>()) {
      if (const auto place = PlaceAt(catalog::PathIn(folder, entry.name))) {
        places.push_back(*place);
      }
    }
    return places;
  }

  std::string IdOf(const std::string& path) const {
    return path.empty() || path == OnlyFolder(roots_) ? kTopId : ObjectIdOf(admission_, path);
  }

  std::string ParentOf(const std::string& path) const {
    if (path.empty()) {
      return "-1";
    }
    const std::string parent = fs::path(path).parent_path().string();
    return MaySee(parent) && parent != path ? IdOf(parent) : kTopId;
  }

  // The facts of the film; null if they are not known, and finding them would take too long.
  Json::Value FactsInTime(const orvo::MediaFile& film) const {
    Answer ignored = Answer::Failure(kInternal);
    const auto facts = Clock::now() < deadline_ ? FactsOf(film, ignored) : KnownFacts(film);
    return facts ? *facts : Json::Value();
  }

  void DescribeFilm(const Place& place, Json::Value& object) const {
    object["kind"] = orvo::IsMusicName(place.path) ? "music" : "film";
    const orvo::MediaFile film = OpenVisible(orvo::RealPath(place.path));
    if (!film.IsOpen()) {
      return;
    }
    const Json::Value facts = FactsInTime(film);
    const std::string address = TelevisionAddress(ObjectIdOf(admission_, film.Path()));
    object["id"] = ObjectIdOf(admission_, film.Path());
    object["title"] = TitleOf(place, film, facts);
    object["date"] = DateOf(place.status.st_mtime);
    object["forms"] = DescribeForms(film, facts, address);
    object["poster"] = address + "/" + kPosterForm;
    if (SubtitleBeside(film).IsOpen()) {
      object["subtitle"] = address + "/" + kSubtitleForm;
    }
    for (const char* const tag : {"artist", "album"}) {
      object[tag] = facts.isObject() ? Shown(facts[tag].asString()) : "";
    }
  }

  static std::string TitleOf(const Place& place, const orvo::MediaFile& film,
                             const Json::Value& facts) {
    const std::string tag = facts.isObject() ? facts["title"].asString() : "";
    const bool isTagged = !tag.empty() && orvo::IsMusicName(place.path);
    return Shown(isTagged ? tag : TitleLine(place.path, NotesBeside(film), tag));
  }

  static std::string DateOf(time_t time) {
    tm fields{};
    gmtime_r(&time, &fields);
    char text[40];
    return std::string(text, strftime(text, sizeof(text), "%Y-%m-%dT%H:%M:%SZ", &fields));
  }

  const Admission& admission_;
  std::vector<std::string> roots_ = MediaRoots();
  Clock::time_point deadline_ = Clock::now() + kPatience;
};

Json::Value Describe(const Browser& browser, const std::vector<Place>& places, int64_t start,
                     int64_t count) {
  Json::Value objects(Json::arrayValue);
  const auto size = static_cast<int64_t>(places.size());
  const int64_t most = count == 0 ? kMostObjects : std::min(count, kMostObjects);
  for (int64_t i = start; i < std::min(size, start + most); ++i) {
    objects.append(browser.Describe(places[static_cast<size_t>(i)]));
  }
  return objects;
}

}  // namespace

Answer BrowseForTelevision(const Request& request, const Admission& admission) {
  const auto start = request.Has("start") ? request.Number("start", kLargestNumber) : 0;
  const auto count = request.Has("count") ? request.Number("count", kLargestNumber) : 0;
  if (!start || !count) {
    return Answer::Failure(kBadRequest, "The start and the count must be whole numbers.");
  }
  const Browser browser(admission);
  const auto place = browser.Find(request.Text("id"));
  const bool wantsChildren = request.Text("children") == "true";
  if (!place || (wantsChildren && !place->IsFolder())) {
    return Answer::Failure(kNotFound);
  }
  const auto places = wantsChildren ? browser.ChildrenOf(*place) : std::vector{*place};
  Json::Value data(Json::objectValue);
  data["objects"] = Describe(browser, places, wantsChildren ? *start : 0, *count);
  data["total"] = static_cast<Json::UInt64>(places.size());
  data["update"] = Browser::UpdateOf(*place);
  return Answer::Success(data);
}

}  // namespace webapi
