#include "webapi/library/file_index.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <ctime>
#include <filesystem>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "catalog/folder.h"
#include "platform/beneath.h"
#include "platform/media_file.h"
#include "util/name_order.h"
#include "util/xml_text.h"
#include "webapi/http/send_file.h"
#include "webapi/http/work.h"
#include "webapi/library/media_library.h"
#include "webapi/library/media_types.h"

namespace webapi {
namespace {

constexpr char kPageType[] = "text/html; charset=utf-8";

bool IsOffered(const std::string& name, bool isFolder) {
  const bool isCompanion = !isFolder && !name.starts_with('.') && IsCompanion(name);
  return isCompanion || catalog::IsShown(name, isFolder);
}

std::string NameOf(const std::string& path) {
  return std::filesystem::path(path).filename().string();
}

// The media roots by the names that the index gives them: their own, and a number where several
// have the same.
std::map<std::string, std::string> NamedRoots() {
  std::map<std::string, std::string> named;
  for (const std::string& root : MediaRoots()) {
    const std::string own = root == "/" ? "root" : NameOf(root);
    std::string name = own;
    for (int number = 2; named.count(name) > 0; ++number) {
      name = own + " (" + std::to_string(number) + ")";
    }
    named.emplace(name, root);
  }
  return named;
}

struct Row {
  std::string name;
  std::string key;  // of the order
  struct stat status;

  bool IsFolder() const { return S_ISDIR(status.st_mode); }
  bool operator<(const Row& other) const {
    return IsFolder() != other.IsFolder() ? IsFolder() : key < other.key;
  }
};

Row RowOf(const std::string& name, const struct stat& status) {
  return {name, orvo::NameSortKey(name, orvo::FoldName(name)), status};
}

// What is not text is shown as a question mark.
std::string Shown(const std::string& name) {
  std::string shown;
  const bool isText = IsUtf8(name);
  for (const char c : name) {
    const auto byte = static_cast<unsigned char>(c);
    shown += byte < ' ' || byte == 0x7f || (byte > 0x7f && !isText) ? '?' : c;
  }
  return orvo::XmlText(shown);
}

std::string Line(const Row& row) {
  const std::string slash = row.IsFolder() ? "/" : "";
  tm time{};
  gmtime_r(&row.status.st_mtime, &time);
  char date[40];
  const size_t length = strftime(date, sizeof(date), "%d-%b-%Y %H:%M", &time);
  return "<a href=\"" + EncodeQueryValue(row.name) + slash + "\">" + Shown(row.name) + slash +
         "</a>  " + std::string(date, length) + "  " +
         (row.IsFolder() ? "-" : std::to_string(row.status.st_size)) + "\n";
}

Answer SendPage(const Request& request, const std::string& path, std::vector<Row> rows) {
  std::sort(rows.begin(), rows.end());
  const std::string title = "Index of " + Shown(path);
  std::string page = "<!DOCTYPE html>\n<html>\n<head><meta charset=\"utf-8\"><title>" + title +
                     "</title></head>\n<body>\n<h1>" + title + "</h1><hr><pre>";
  page += path == "/" ? "" : "<a href=\"../\">../</a>\n";
  for (const Row& row : rows) {
    page += Line(row);
  }
  return SendText(request, kPageType, page + "</pre><hr>\n</body>\n</html>\n");
}

Answer SendRoots(const Request& request) {
  std::vector<Row> rows;
  for (const auto& [name, root] : NamedRoots()) {
    struct stat status {};
    if (stat(root.c_str(), &status) == 0) {
      rows.push_back(RowOf(name, status));
    }
  }
  return SendPage(request, "/", rows);
}

struct Closer {
  void operator()(DIR* folder) const { closedir(folder); }
};
using Folder = std::unique_ptr<DIR, Closer>;

// Opens a folder by its real path, below the media root that holds it.
Folder OpenFolder(const std::string& path) {
  for (const std::string& root : MediaRoots()) {
    if (!LiesIn({root}, path)) {
      continue;
    }
    const orvo::UniqueFd top(open(root.c_str(), O_PATH | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
    const std::string rest = path.substr(std::min(path.size(), root == "/" ? 1 : root.size() + 1));
    const orvo::UniqueFd found = rest.empty() ? orvo::UniqueFd() : orvo::FindBeneath(top, rest);
    orvo::UniqueFd folder(
        openat(rest.empty() ? top.Get() : found.Get(), ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (folder.IsOpen()) {
      return Folder(fdopendir(folder.Release()));
    }
  }
  return nullptr;
}

// What the page of a folder shows. Nothing, with the answer in `refusal`, if it cannot be read now.
std::optional<std::vector<Row>> RowsIn(const std::string& folder, Answer& refusal) {
  const auto place = TakePlace(kIndexWork);
  const Folder open = place ? OpenFolder(folder) : nullptr;
  if (!open) {
    refusal = place ? Answer::Failure(kNotFound, "The server cannot read this folder.")
                    : Answer::Failure(kBusy);
    return std::nullopt;
  }
  const std::vector<std::string> roots = MediaRoots();
  std::vector<Row> rows;
  while (const dirent* const found = readdir(open.get())) {
    const std::string name = found->d_name;
    const auto status = StatusInRoots(roots, catalog::PathIn(folder, name));
    const bool isFolder = status && S_ISDIR(status->st_mode);
    if (status && (isFolder || S_ISREG(status->st_mode)) && IsOffered(name, isFolder)) {
      rows.push_back(RowOf(name, *status));
    }
  }
  return rows;
}

// A client that reads slowly keeps no place.
Answer SendFolder(const Request& request, const std::string& shownPath, const std::string& folder) {
  Answer refusal = Answer::Failure(kInternal);
  const auto rows = RowsIn(folder, refusal);
  return rows ? SendPage(request, shownPath, *rows) : refusal;
}

// The place that a path of the index means; nothing if a part of it is never shown.
std::optional<std::string> PlaceOf(const std::string& path) {
  const auto roots = NamedRoots();
  const size_t end = std::min(path.find('/', 1), path.size());
  const auto root = roots.find(path.substr(1, end - 1));
  if (root == roots.end()) {
    return std::nullopt;
  }
  std::string place = root->second;
  for (size_t start = end + 1; start < path.size();) {
    const size_t stop = std::min(path.find('/', start), path.size());
    const std::string name = path.substr(start, stop - start);
    if (!IsOffered(name, stop < path.size()) && !IsOffered(name, true)) {
      return std::nullopt;
    }
    place = catalog::PathIn(place, name);
    start = stop + 1;
  }
  return place;
}

// The address of a folder ends with a slash, so that the links on its page lead into it.
Answer SendToFolder(const std::string& path) {
  return Answer::Elsewhere(EncodeQueryValue(NameOf(path)) + "/");
}

Answer SendTheFile(const Request& request, const std::string& path, const std::string& place) {
  std::error_code ignored;
  if (std::filesystem::is_directory(place, ignored) && MaySee(RealPath(place))) {
    return SendToFolder(path);
  }
  Answer refusal = Answer::Failure(kInternal);
  const auto film = OpenFilm(place, refusal);
  if (!film) {
    return refusal;
  }
  // A link may have led to another name.
  if (!IsOffered(NameOf(film->Path()), false)) {
    return Answer::Failure(kNotFound);
  }
  return SendFile(request, *film, MediaTypeOf(NameOf(film->Path())));
}

}  // namespace

Answer SendIndex(const Request& request) {
  const auto path = request.PathInProgram();
  if (!path) {
    return Answer::Failure(kBadRequest);
  }
  if (path->empty()) {
    return SendToFolder(request.Program());
  }
  if (*path == "/") {
    return SendRoots(request);
  }
  const auto place = path->starts_with('/') ? PlaceOf(*path) : std::nullopt;
  if (!place) {
    return Answer::Failure(kNotFound);
  }
  if (!path->ends_with('/')) {
    return SendTheFile(request, *path, *place);
  }
  Answer refusal = Answer::Failure(kInternal);
  const auto folder = ResolveMediaPath(*place, refusal);
  return folder ? SendFolder(request, *path, *folder) : refusal;
}

}  // namespace webapi
