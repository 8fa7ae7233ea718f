#include "webapi/library/folder_card.h"

#include <sys/stat.h>

#include <algorithm>
#include <chrono>
#include <utility>
#include <vector>

#include "catalog/catalog.h"
#include "webapi/library/history.h"
#include "webapi/library/media_library.h"

namespace webapi {
namespace {

using catalog::Entry;
using Clock = std::chrono::steady_clock;

constexpr auto kTimeLimit = std::chrono::milliseconds(300);
constexpr int kMaxDepth = 8;

struct Place {
  std::string path;
  int depth = 0;
};

// Counts the films in a folder and below it. Linked folders are not entered.
class Count {
 public:
  explicit Count(const std::string& folder) {
    places_.push_back({folder, 0});
    while (!places_.empty() && isAll_) {
      const Place place = std::move(places_.back());
      places_.pop_back();
      reader_.ForEach(
          place.path, [](bool, std::string_view) { return true; },
          [&](const Entry& entry) { Add(place, entry); });
      isAll_ = Clock::now() < deadline_;
    }
    isAll_ = isAll_ && places_.empty();
  }

  Json::Int64 Films() const { return films_; }
  bool IsAll() const { return isAll_; }

 private:
  void Add(const Place& place, const Entry& entry) {
    if (!entry.isFolder) {
      ++films_;
      return;
    }
    const std::string path = catalog::PathIn(place.path, entry.name);
    struct stat status {};
    if (place.depth < kMaxDepth && lstat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode)) {
      places_.push_back({path, place.depth + 1});
    }
  }

  catalog::CatalogReader reader_;
  Clock::time_point deadline_ = Clock::now() + kTimeLimit;
  std::vector<Place> places_;
  Json::Int64 films_ = 0;
  bool isAll_ = true;
};

}  // namespace

Answer DescribeFolderCard(const Request& request, const std::string& folder) {
  const auto finished = FinishedFilms(request);
  const auto watched = std::count_if(finished.begin(), finished.end(), [&](const auto& film) {
    return LiesIn({folder}, film) && !RealPath(film).empty();
  });
  const Count count(folder);
  Json::Value data(Json::objectValue);
  data["films"] = count.Films();
  data["is_all"] = count.IsAll();
  data["watched"] = static_cast<Json::Int64>(watched);
  return Answer::Success(data);
}

}  // namespace webapi
