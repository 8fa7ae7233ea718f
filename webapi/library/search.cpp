#include "webapi/library/search.h"

#include <sys/stat.h>

#include <algorithm>
#include <chrono>
#include <climits>
#include <clocale>
#include <cwchar>
#include <cwctype>
#include <filesystem>
#include <set>
#include <string>
#include <vector>

#include "util/media_names.h"
#include "webapi/library/media_library.h"

namespace webapi {
namespace {

namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;

constexpr size_t kMaxFound = 200;
constexpr int kMaxEntries = 100000;
constexpr int kMaxDepth = 32;
constexpr auto kTimeLimit = std::chrono::seconds(2);

// Sets the calling thread's character set to UTF-8 while this object exists.
class Utf8Scope {
 public:
  Utf8Scope() : previous_(uselocale(Locale())) {}
  Utf8Scope(const Utf8Scope&) = delete;
  Utf8Scope& operator=(const Utf8Scope&) = delete;
  ~Utf8Scope() { uselocale(previous_); }

 private:
  // If the system has no such locale, nothing changes.
  static locale_t Locale() {
    static const locale_t locale = newlocale(LC_CTYPE_MASK, "C.UTF-8", nullptr);
    return locale;
  }

  locale_t previous_;
};

class Search {
 public:
  explicit Search(const std::string& text) : text_(FoldCase(text)) {}

  // Searches a folder and all folders below it. For a root that is a file, checks the file.
  void In(const std::string& root) {
    std::error_code failure;
    if (!fs::is_directory(root, failure)) {
      Look(root);
      return;
    }
    fs::recursive_directory_iterator entry(root, fs::directory_options::skip_permission_denied,
                                           failure);
    for (const fs::recursive_directory_iterator end; !failure && entry != end && MayGoOn();
         entry.increment(failure)) {
      // Hidden files are left out, as in a listing. Linked folders are not entered: their content
      // is found at its real place, and links may form circles.
      const std::string name = entry->path().filename().string();
      if (orvo::IsSystemFolderName(name) || entry.depth() >= kMaxDepth) {
        entry.disable_recursion_pending();
      }
      Look(entry->path().string());
    }
    isTruncated_ = isTruncated_ || failure;
  }

  Answer Finish() const {
    Json::Value data(Json::objectValue);
    data["files"] = Json::Value(Json::arrayValue);
    for (const auto& [name, path] : found_) {
      struct stat status {};
      if (stat(path.c_str(), &status) == 0 && S_ISREG(status.st_mode)) {
        data["files"].append(DescribeEntry(path, status));
      }
    }
    data["truncated"] = isTruncated_;
    return Answer::Success(data);
  }

 private:
  bool MayGoOn() {
    isTruncated_ = isTruncated_ || ++entries_ > kMaxEntries || found_.size() >= kMaxFound ||
                   Clock::now() > deadline_;
    return !isTruncated_;
  }

  void Look(const std::string& path) {
    const std::string name = fs::path(path).filename().string();
    const std::string folded = FoldCase(name);
    if (!orvo::IsFilmName(name) || folded.find(text_) == std::string::npos) {
      return;
    }
    // A link that leads out of the roots counts as missing.
    std::error_code failure;
    if (!fs::is_symlink(path, failure) || LiesIn(roots_, RealPath(path))) {
      found_.emplace(folded, path);
    }
  }

  std::string text_;
  std::vector<std::string> roots_ = MediaRoots();
  Clock::time_point deadline_ = Clock::now() + kTimeLimit;
  int entries_ = 0;
  bool isTruncated_ = false;
  std::set<std::pair<std::string, std::string>> found_;  // folded name and path
};

}  // namespace

std::string FoldCase(const std::string& text) {
  const Utf8Scope scope;
  std::string folded;
  std::mbstate_t state{};
  for (size_t at = 0; at < text.size();) {
    wchar_t letter = 0;
    const size_t length = std::mbrtowc(&letter, text.data() + at, text.size() - at, &state);
    if (length == 0 || length > text.size() - at) {
      folded += text[at++];
      state = {};
      continue;
    }
    char bytes[MB_LEN_MAX];
    std::mbstate_t out{};
    folded.append(bytes, std::wcrtomb(bytes, std::towlower(letter), &out));
    at += length;
  }
  return folded;
}

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
