#include "webapi/library/search.h"

#include <sys/stat.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <iterator>
#include <sstream>
#include <string>
#include <vector>

#include "util/media_names.h"
#include "util/name_order.h"
#include "webapi/library/media_library.h"

namespace webapi {
namespace {

namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;

constexpr size_t kMaxFound = 200;
constexpr int kMaxEntries = 100000;
constexpr int kMaxDepth = 32;
constexpr auto kTimeLimit = std::chrono::seconds(2);

std::vector<std::string> WordsOf(const std::string& text) {
  std::istringstream words(orvo::FoldName(text));
  return {std::istream_iterator<std::string>(words), {}};
}

std::string NameOf(const std::string& path) {
  return fs::path(path).filename().string();
}

bool NameComesBefore(const std::string& left, const std::string& right) {
  const std::string names[] = {NameOf(left), NameOf(right)};
  return names[0] != names[1] ? orvo::NameComesBefore(names[0], names[1]) : left < right;
}

class Search {
 public:
  explicit Search(const std::string& text) : words_(WordsOf(text)) {}

  // Searches a folder and all folders below it. For a root that is a file, checks the file.
  void In(const std::string& root) {
    std::error_code failure;
    if (!fs::is_directory(root, failure)) {
      LookAtFilm(root, fs::path(root).parent_path().string());
      return;
    }
    fs::recursive_directory_iterator entry(root, fs::directory_options::skip_permission_denied,
                                           failure);
    for (const fs::recursive_directory_iterator end; !failure && entry != end && MayGoOn();
         entry.increment(failure)) {
      // Hidden files are left out, as in a listing. Linked folders are not entered: their content
      // is found at its real place, and links may form circles.
      const std::string path = entry->path().string();
      const bool isSystemFolder = orvo::IsSystemFolderName(NameOf(path));
      if (isSystemFolder || entry.depth() >= kMaxDepth) {
        entry.disable_recursion_pending();
      }
      std::error_code unknown;
      if (!entry->is_directory(unknown)) {
        LookAtFilm(path, root);
      } else if (!isSystemFolder && !entry->is_symlink(unknown) && Matches(path, root)) {
        folders_.push_back(path);
      }
    }
    isTruncated_ = isTruncated_ || failure;
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
    isTruncated_ = isTruncated_ || ++entries_ > kMaxEntries ||
                   films_.size() + folders_.size() >= kMaxFound || Clock::now() > deadline_;
    return !isTruncated_;
  }

  // Do all words occur in the way from the root, and one of them in the name itself? The films in a
  // folder that is found are not found for its name alone.
  bool Matches(const std::string& path, const std::string& root) const {
    const std::string name = orvo::FoldName(NameOf(path));
    const std::string way = orvo::FoldName(fs::path(path).lexically_relative(root).string());
    const auto isIn = [](const std::string& text) {
      return [&](const std::string& word) { return text.find(word) != std::string::npos; };
    };
    return std::any_of(words_.begin(), words_.end(), isIn(name)) &&
           std::all_of(words_.begin(), words_.end(), isIn(way));
  }

  void LookAtFilm(const std::string& path, const std::string& root) {
    if (!orvo::IsPlayableName(NameOf(path)) || !Matches(path, root)) {
      return;
    }
    // A link that leads out of the roots counts as missing.
    std::error_code failure;
    if (!fs::is_symlink(path, failure) || LiesIn(roots_, RealPath(path))) {
      films_.push_back(path);
    }
  }

  // Sorts the paths and describes those that are of this type.
  static Json::Value Describe(std::vector<std::string>& paths, mode_t type) {
    Json::Value entries(Json::arrayValue);
    std::sort(paths.begin(), paths.end(), NameComesBefore);
    paths.erase(std::unique(paths.begin(), paths.end()), paths.end());
    for (const std::string& path : paths) {
      struct stat status {};
      if (stat(path.c_str(), &status) == 0 && (status.st_mode & S_IFMT) == type) {
        entries.append(DescribeEntry(path, status));
      }
    }
    return entries;
  }

  std::vector<std::string> words_;
  std::vector<std::string> roots_ = MediaRoots();
  Clock::time_point deadline_ = Clock::now() + kTimeLimit;
  int entries_ = 0;
  bool isTruncated_ = false;
  std::vector<std::string> films_;
  std::vector<std::string> folders_;
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
