#include "webapi/library/media_library.h"

#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <iterator>
#include <limits>

#include "catalog/catalog.h"
#include "platform/plat.h"
#include "settings/media_folders.h"
#include "util/json_utils.h"
#include "util/system_files.h"
#include "webapi/http/request.h"
#include "webapi/library/folder_view.h"

namespace webapi {
namespace {

namespace fs = std::filesystem;
using orvo::LiesWithin;

constexpr int64_t kMaxOffset = 1000000000;
constexpr int64_t kMaxLimit = 10000;

// The real path, without links. On failure returns "" and sets `failure` to the errno.
std::string Resolve(const std::string& path, int& failure) {
  std::string resolved = RealPath(path);
  failure = resolved.empty() ? errno : 0;
  return resolved;
}

// The real path of the nearest existing folder above `path`.
std::string NearestFolder(fs::path path) {
  std::string found;
  while (found.empty() && path.has_relative_path()) {
    path = path.parent_path();
    found = RealPath(path.string());
  }
  return found;
}

// The paths that an account may see; nothing if it may see all.
std::optional<std::vector<std::string>> limits;

// Adds the visible part of a media root: the whole root, some folders in it, or nothing.
void AddVisible(const std::string& root, std::vector<std::string>& roots) {
  for (const std::string& limit : *limits) {
    if (LiesWithin(root, limit)) {
      roots.push_back(root);
      return;
    }
  }
  std::copy_if(limits->begin(), limits->end(), std::back_inserter(roots),
               [&](const std::string& limit) { return LiesWithin(limit, root); });
}

// The parent folder, if it is visible. The parent of a root is the list of roots, if there are
// several roots.
std::optional<std::string> ParentOf(const std::string& folder) {
  const std::string parent = fs::path(folder).parent_path().string();
  if (parent != folder && MaySee(parent)) {
    return parent;
  }
  return MediaRoots().size() > 1 ? std::optional<std::string>("") : std::nullopt;
}

class Listing {
 public:
  // Lists a root whatever its name is.
  void AddRoot(const std::string& path) {
    struct stat status {};
    if (stat(path.c_str(), &status) == 0) {
      Append(path, status);
    }
  }

  // What a remembered folder says of an entry may be wrong, so only the type on the disk counts.
  void Add(const std::string& folder, const catalog::Entry& entry) {
    const std::string path = catalog::PathIn(folder, entry.name);
    const auto status = StatusInRoots(roots_, path);
    if (status && catalog::IsShown(entry.name, S_ISDIR(status->st_mode))) {
      Append(path, *status);
    }
  }

  void SetNext(int64_t offset) { next_ = offset; }

  Answer Finish(const std::string& path, const std::optional<std::string>& parent) const {
    Json::Value data(Json::objectValue);
    data["path"] = path;
    if (parent) {
      data["parent"] = *parent;
    }
    if (next_) {
      data["next"] = static_cast<Json::Int64>(*next_);
    }
    data["folders"] = folders_;
    data["files"] = files_;
    return Answer::Success(data);
  }

 private:
  void Append(const std::string& path, const struct stat& status) {
    if (S_ISDIR(status.st_mode)) {
      folders_.append(DescribeEntry(path, status));
    } else if (S_ISREG(status.st_mode)) {
      files_.append(DescribeEntry(path, status));
    }
  }

  std::vector<std::string> roots_ = MediaRoots();
  std::optional<int64_t> next_;
  Json::Value folders_{Json::arrayValue};
  Json::Value files_{Json::arrayValue};
};

Answer ListRoots() {
  Listing listing;
  for (const std::string& root : MediaRoots()) {
    listing.AddRoot(root);
  }
  return listing.Finish("", std::nullopt);
}

// The part of a folder that a request asks for.
struct Part {
  int64_t offset = 0;
  int64_t limit = std::numeric_limits<int64_t>::max();
};

std::optional<Part> PartOf(const Request& request) {
  const auto offset = request.Has("offset") ? request.Number("offset", kMaxOffset) : 0;
  const auto limit = request.Has("limit") ? request.Number("limit", kMaxLimit) : Part().limit;
  return offset && limit && *limit > 0 ? std::optional(Part{*offset, *limit}) : std::nullopt;
}

}  // namespace

Json::Value DescribeEntry(const std::string& path, const struct stat& status) {
  Json::Value entry(Json::objectValue);
  entry["name"] = fs::path(path).filename().string();
  entry["path"] = path;
  entry["encoded_path"] = EncodeQueryValue(path);
  entry["mtime"] = static_cast<Json::Int64>(status.st_mtime);
  if (!S_ISDIR(status.st_mode)) {
    entry["size"] = static_cast<Json::Int64>(status.st_size);
  }
  return entry;
}

bool LiesIn(const std::vector<std::string>& roots, const std::string& path) {
  return std::any_of(roots.begin(), roots.end(),
                     [&](const std::string& root) { return LiesWithin(path, root); });
}

std::optional<struct stat> StatusInRoots(const std::vector<std::string>& roots,
                                         const std::string& entry) {
  struct stat status {};
  bool isThere = lstat(entry.c_str(), &status) == 0;
  if (isThere && S_ISLNK(status.st_mode)) {
    isThere = LiesIn(roots, RealPath(entry)) && stat(entry.c_str(), &status) == 0;
  }
  return isThere ? std::optional(status) : std::nullopt;
}

std::vector<std::string> MediaRoots() {
  std::vector<std::string> roots;
  Json::Value configured;
  LibMirevo::ReadJsonFromFileWithoutLock(orvo::SystemPath(settings::kMediaRootsFile), configured);
  if (!configured.isArray()) {
    return roots;
  }
  for (const Json::Value& root : configured) {
    const std::string path = root.isString() ? RealPath(root.asString()) : "";
    if (path.empty()) {
      continue;
    }
    if (limits) {
      AddVisible(path, roots);
    } else {
      roots.push_back(path);
    }
  }
  return roots;
}

void LimitMediaRoots(const std::vector<std::string>& paths) {
  limits.emplace();
  std::transform(paths.begin(), paths.end(), std::back_inserter(*limits), RealPath);
  std::erase(*limits, "");
}

bool MaySee(const std::string& path) {
  return LiesIn(MediaRoots(), path);
}

std::optional<std::string> ResolveMediaPath(const std::string& path, Answer& refusal) {
  if (path.empty() || path.front() != '/') {
    refusal = Answer::Failure(kBadRequest, "The path must be absolute.");
    return std::nullopt;
  }
  int failure = 0;
  const std::string resolved = Resolve(path, failure);
  if (resolved.empty()) {
    // The answer must not reveal what exists outside the roots.
    refusal = failure != EACCES && MaySee(NearestFolder(path))
                  ? Answer::Failure(kNotFound, "There is no such file or folder.")
                  : Answer::Failure(kForbidden);
    return std::nullopt;
  }
  if (!MaySee(resolved)) {
    refusal = Answer::Failure(kForbidden);
    return std::nullopt;
  }
  return resolved;
}

orvo::MediaFile OpenVisible(const std::string& path) {
  orvo::MediaFile file;
  libmrv::DoActionAsRoot("OpenFilm", [&] {
    errno = EXDEV;
    for (const std::string& root : MediaRoots()) {
      if (!file.IsOpen() && LiesWithin(path, root)) {
        file = orvo::MediaFile::OpenBeneath(root, path);
      }
    }
    return file.IsOpen();
  });
  return file;
}

std::optional<orvo::MediaFile> OpenFilm(const std::string& path, Answer& refusal) {
  const auto resolved = ResolveMediaPath(path, refusal);
  if (!resolved) {
    return std::nullopt;
  }
  orvo::MediaFile film = OpenVisible(*resolved);
  if (film.IsOpen()) {
    return film;
  }
  refusal = errno == EINVAL ? Answer::Failure(kBadRequest, "This is a folder, not a film.")
                            : Answer::Failure(kNotFound, "The server cannot open this film.");
  return std::nullopt;
}

bool LoadFilm(const orvo::MediaFile& file, LibOrvoQMX::VideoMetaData& film, Answer& refusal) {
  const bool isFilm = film.LoadFile(file);
  if (!isFilm) {
    refusal = Answer::Failure(kNoFilm, "This file is not a film that can be played.");
  }
  return isFilm;
}

Answer ListFolder(const Request& request) {
  const auto part = PartOf(request);
  if (!part) {
    return Answer::Failure(kBadRequest, "The offset and the limit must be whole numbers.");
  }
  const auto view = FolderViewOf(request);
  if (!view) {
    return Answer::Failure(kBadRequest, "There is no such order, or no such kind of films.");
  }
  if (request.Text("path").empty()) {
    return ListRoots();
  }
  Answer refusal = Answer::Failure(kInternal);
  const auto folder = ResolveMediaPath(request.Text("path"), refusal);
  if (!folder) {
    return refusal;
  }
  const auto page = ReadView(request, *folder, *view, part->offset, part->limit);
  if (!page) {
    return Answer::Failure(kBadRequest, "The server cannot read this folder.");
  }
  Listing listing;
  for (const catalog::Entry& entry : page->entries) {
    listing.Add(*folder, entry);
  }
  if (!page->isLast) {
    listing.SetNext(part->offset + part->limit);
  }
  return listing.Finish(*folder, ParentOf(*folder));
}

}  // namespace webapi
