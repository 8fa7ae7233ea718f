#include "webapi/library/search.h"

#include <sys/stat.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <iterator>
#include <sstream>
#include <string>
#include <string_view>
#include <tuple>
#include <utility>
#include <vector>

#include "catalog/catalog.h"
#include "util/media_names.h"
#include "util/name_order.h"
#include "webapi/library/media_library.h"

namespace webapi {
namespace {

namespace fs = std::filesystem;
using catalog::Entry;
using Clock = std::chrono::steady_clock;

constexpr Json::ArrayIndex kMaxFound = 200;  // of films, and of folders
constexpr int kMaxDepth = 32;
constexpr auto kTimeLimit = std::chrono::seconds(2);

std::vector<std::string> WordsOf(const std::string& text) {
  std::istringstream words(orvo::FoldName(text));
  return {std::istream_iterator<std::string>(words), {}};
}

struct Found {
  std::string key;
  std::string path;

  bool operator<(const Found& other) const {
    return std::tie(key, path) < std::tie(other.key, other.path);
  }
  bool operator==(const Found& other) const { return path == other.path; }
};

// A folder to be searched.
struct Place {
  std::string path;
  std::string words;  // the folded way from the root; "" for the root
  int depth = 0;
};

class Search {
 public:
  explicit Search(const std::string& text) : words_(WordsOf(text)) {}

  // Searches a folder and all folders below it. For a root that is a file, checks the file.
  void In(const std::string& root) {
    std::error_code failure;
    if (!fs::is_directory(root, failure)) {
      LookAtFilm(root);
      return;
    }
    std::vector<Place> places = {{root, "", 0}};
    while (!places.empty() && MayGoOn()) {
      const Place place = std::move(places.back());
      places.pop_back();
      reader_.ForEach(
          place.path,
          [&](bool isFolder, std::string_view words) { return isFolder || Matches(words, place); },
          [&](const Entry& entry) { LookAt(place, entry, places); });
    }
  }

  Answer Finish() {
    Json::Value data(Json::objectValue);
    data["folders"] = Describe(folders_, S_IFDIR);
    data["files"] = Describe(films_, S_IFREG);
    data["truncated"] = isTruncated_;
    return Answer::Success(data);
  }

 private:
  bool MayGoOn() {
    isTruncated_ = isTruncated_ || Clock::now() > deadline_;
    return !isTruncated_;
  }

  bool HasWord(std::string_view name) const {
    return std::any_of(words_.begin(), words_.end(), [&](const std::string& word) {
      return name.find(word) != std::string_view::npos;
    });
  }

  // Do all words occur in the way from the root, and one of them in the name itself? The films in a
  // folder that is found are not found for its name alone.
  bool Matches(std::string_view name, const Place& place) {
    if (!HasWord(name)) {
      return false;
    }
    WayTo(name, place, way_);
    return std::all_of(words_.begin(), words_.end(), [&](const std::string& word) {
      return way_.find(word) != std::string::npos;
    });
  }

  static void WayTo(std::string_view name, const Place& place, std::string& way) {
    way = place.words;
    way.append(way.empty() ? "" : "/").append(name);
  }

  void LookAtFilm(const std::string& root) {
    const std::string name = fs::path(root).filename().string();
    const std::string words = orvo::FoldName(name);
    if (orvo::IsPlayableName(name) && Matches(words, {})) {
      films_.push_back({orvo::NameSortKey(name, words), root});
    }
  }

  void LookAt(const Place& place, const Entry& entry, std::vector<Place>& places) {
    const std::string path = catalog::PathIn(place.path, entry.name);
    if (!entry.isFolder) {
      films_.push_back({entry.key, path});
      return;
    }
    // Linked folders are not entered: their content is found at its real place, and links may form
    // circles.
    struct stat status {};
    if (lstat(path.c_str(), &status) != 0 || !S_ISDIR(status.st_mode)) {
      return;
    }
    if (Matches(entry.words, place)) {
      folders_.push_back({entry.key, path});
    }
    if (place.depth < kMaxDepth) {
      Place& below = places.emplace_back(Place{path, "", place.depth + 1});
      WayTo(entry.words, place, below.words);
    }
  }

  // Describes the first ones of this type.
  Json::Value Describe(std::vector<Found>& found, mode_t type) {
    Json::Value entries(Json::arrayValue);
    std::sort(found.begin(), found.end());
    found.erase(std::unique(found.begin(), found.end()), found.end());
    for (const Found& one : found) {
      if (entries.size() == kMaxFound) {
        isTruncated_ = true;
        break;
      }
      const auto status = StatusInRoots(roots_, one.path);
      if (status && (status->st_mode & S_IFMT) == type) {
        entries.append(DescribeEntry(one.path, *status));
      }
    }
    return entries;
  }

  std::vector<std::string> words_;
  std::string way_;  // of the entry that is looked at; one for all, because there are many
  std::vector<std::string> roots_ = MediaRoots();
  catalog::CatalogReader reader_;
  Clock::time_point deadline_ = Clock::now() + kTimeLimit;
  bool isTruncated_ = false;
  std::vector<Found> films_;
  std::vector<Found> folders_;
};

}  // namespace

Answer SearchFilms(const Request& request) {
  const std::string text = request.Text("q");
  if (text.empty()) {
    return Answer::Failure(kBadRequest, "The parameter q is missing.");
  }
  std::vector<std::string> folders = MediaRoots();
  if (!request.Text("path").empty()) {
    Answer refusal = Answer::Failure(kInternal);
    const auto folder = ResolveMediaPath(request.Text("path"), refusal);
    if (!folder) {
      return refusal;
    }
    folders = {*folder};
  }
  Search search(text);
  for (const std::string& folder : folders) {
    search.In(folder);
  }
  return search.Finish();
}

}  // namespace webapi
