#include "webapi/library/folder_view.h"

#include <sys/stat.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <iterator>
#include <limits>
#include <set>
#include <string_view>
#include <tuple>
#include <utility>
#include <vector>

#include "util/media_names.h"
#include "webapi/library/film_card.h"
#include "webapi/library/history.h"
#include "webapi/library/media_library.h"

namespace webapi {
namespace {

using catalog::Entry;
using Page = catalog::CatalogReader::Page;
using Clock = std::chrono::steady_clock;

// The lengths of films that are looked up after this time count as unknown.
constexpr auto kLookUpTime = std::chrono::seconds(2);

template <typename Value>
struct Word {
  std::string_view word;
  Value value;
};
constexpr std::array kSorts = {Word<FolderView::Sort>{"", FolderView::Sort::kName},
                               Word<FolderView::Sort>{"name", FolderView::Sort::kName},
                               Word<FolderView::Sort>{"added", FolderView::Sort::kAdded},
                               Word<FolderView::Sort>{"length", FolderView::Sort::kLength}};
constexpr std::array kShows = {Word<FolderView::Show>{"", FolderView::Show::kAll},
                               Word<FolderView::Show>{"unwatched", FolderView::Show::kUnwatched},
                               Word<FolderView::Show>{"films", FolderView::Show::kFilms},
                               Word<FolderView::Show>{"music", FolderView::Show::kMusic}};

// Sets `value` to what the word names. Returns false for an unknown word.
template <typename Words, typename Value>
bool Find(const Words& words, const std::string& word, Value& value) {
  const auto found =
      std::find_if(words.begin(), words.end(), [&](const auto& row) { return row.word == word; });
  if (found != words.end()) {
    value = found->value;
  }
  return found != words.end();
}

// The entries to show, in no order.
std::optional<std::vector<Entry>> Select(const Request& request, const std::string& folder,
                                         FolderView::Show show) {
  const auto finished =
      show == FolderView::Show::kUnwatched ? FinishedFilms(request) : std::set<std::string>();
  std::vector<Entry> entries;
  const auto isShown = [&](const Entry& entry) {
    return entry.isFolder || show == FolderView::Show::kAll ||
           (show == FolderView::Show::kUnwatched &&
            !finished.contains(catalog::PathIn(folder, entry.name))) ||
           (show == FolderView::Show::kFilms && orvo::IsFilmName(entry.name)) ||
           (show == FolderView::Show::kMusic && orvo::IsMusicName(entry.name));
  };
  const bool isRead = catalog::CatalogReader().ForEach(
      folder, [](bool, std::string_view) { return true; },
      [&](const Entry& entry) {
        if (isShown(entry)) {
          entries.push_back(entry);
        }
      });
  return isRead ? std::optional(std::move(entries)) : std::nullopt;
}

// Negative, so that the newest comes first; what is gone comes last.
int64_t AgeOf(const std::string& path) {
  struct stat status {};
  return lstat(path.c_str(), &status) == 0 ? -static_cast<int64_t>(status.st_mtime)
                                           : std::numeric_limits<int64_t>::max();
}

int64_t LengthOf(const std::string& path, Clock::time_point deadline) {
  const auto length = Clock::now() < deadline ? KnownLength(OpenVisible(path)) : std::nullopt;
  return length ? *length : std::numeric_limits<int64_t>::max();
}

void Order(const std::string& folder, FolderView::Sort sort, std::vector<Entry>& entries) {
  const auto deadline = Clock::now() + kLookUpTime;
  const auto rankOf = [&](const Entry& entry) -> int64_t {
    const std::string path = catalog::PathIn(folder, entry.name);
    if (sort == FolderView::Sort::kAdded) {
      return AgeOf(path);
    }
    return sort == FolderView::Sort::kLength && !entry.isFolder ? LengthOf(path, deadline) : 0;
  };
  std::vector<std::pair<int64_t, Entry>> ranked;
  ranked.reserve(entries.size());
  for (Entry& entry : entries) {
    const int64_t rank = rankOf(entry);
    ranked.emplace_back(rank, std::move(entry));
  }
  std::sort(ranked.begin(), ranked.end(), [](const auto& left, const auto& right) {
    return std::make_tuple(!left.second.isFolder, left.first, std::cref(left.second.key)) <
           std::make_tuple(!right.second.isFolder, right.first, std::cref(right.second.key));
  });
  std::transform(ranked.begin(), ranked.end(), entries.begin(),
                 [](auto& one) { return std::move(one.second); });
}

}  // namespace

std::optional<FolderView> FolderViewOf(const Request& request) {
  FolderView view;
  const bool isKnown = Find(kSorts, request.Text("sort"), view.sort) &&
                       Find(kShows, request.Text("show"), view.show);
  return isKnown ? std::optional(view) : std::nullopt;
}

std::optional<Page> ReadView(const Request& request, const std::string& folder,
                             const FolderView& view, int64_t offset, int64_t limit) {
  if (view.sort == FolderView::Sort::kName && view.show == FolderView::Show::kAll) {
    return catalog::CatalogReader().Read(folder, offset, limit);
  }
  auto entries = Select(request, folder, view.show);
  if (!entries) {
    return std::nullopt;
  }
  Order(folder, view.sort, *entries);
  const auto size = static_cast<int64_t>(entries->size());
  const int64_t first = std::min(offset, size);
  const int64_t count = std::min(limit, size - first);
  Page page;
  page.isLast = first + count == size;
  std::move(entries->begin() + first, entries->begin() + first + count,
            std::back_inserter(page.entries));
  return page;
}

}  // namespace webapi
