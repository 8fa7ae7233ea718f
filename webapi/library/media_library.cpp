#include "webapi/library/media_library.h"

#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <filesystem>
#include <iterator>

#include "platform/plat.h"
#include "util/json_utils.h"
#include "util/media_names.h"
#include "util/name_order.h"
#include "util/system_files.h"
#include "webapi/http/request.h"

namespace webapi {
namespace {

namespace fs = std::filesystem;

bool IsBelow(const std::string& path, const std::string& root) {
  return path == root || root == "/" ||
         (path.compare(0, root.size(), root) == 0 && path[root.size()] == '/');
}

// The real path, without links. On failure returns "" and sets `failure` to the errno.
std::string Resolve(const std::string& path, int& failure) {
  char resolved[PATH_MAX];
  const bool isResolved = realpath(path.c_str(), resolved) != nullptr;
  failure = isResolved ? 0 : errno;
  return isResolved ? resolved : "";
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
    if (IsBelow(root, limit)) {
      roots.push_back(root);
      return;
    }
  }
  std::copy_if(limits->begin(), limits->end(), std::back_inserter(roots),
               [&](const std::string& limit) { return IsBelow(limit, root); });
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
  void Add(const std::string& path, bool isRoot) {
    struct stat status {};
    const std::string name = fs::path(path).filename().string();
    if (name.empty() && !isRoot) {
      return;
    }
    if (stat(path.c_str(), &status) != 0) {
      return;
    }
    if (S_ISDIR(status.st_mode) && (isRoot || !orvo::IsSystemFolderName(name))) {
      folders_.append(DescribeEntry(path, status));
    } else if (S_ISREG(status.st_mode) && (isRoot || orvo::IsPlayableName(name))) {
      files_.append(DescribeEntry(path, status));
    }
  }

  Answer Finish(const std::string& path, const std::optional<std::string>& parent) const {
    Json::Value data(Json::objectValue);
    data["path"] = path;
    if (parent) {
      data["parent"] = *parent;
    }
    data["folders"] = folders_;
    data["files"] = files_;
    return Answer::Success(data);
  }

 private:
  Json::Value folders_{Json::arrayValue};
  Json::Value files_{Json::arrayValue};
};

}  // namespace

std::string RealPath(const std::string& path) {
  int ignored = 0;
  return Resolve(path, ignored);
}

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
                     [&](const std::string& root) { return IsBelow(path, root); });
}

std::vector<std::string> MediaRoots() {
  std::vector<std::string> roots;
  Json::Value configured;
  LibMirevo::ReadJsonFromFileWithoutLock(orvo::SystemPath("/var/packages/Mirevo/etc/media_roots"),
                                         configured);
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
      if (!file.IsOpen() && IsBelow(path, root)) {
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

Answer ListFolder(const std::string& path) {
  Listing listing;
  if (path.empty()) {
    for (const std::string& root : MediaRoots()) {
      listing.Add(root, true);
    }
    return listing.Finish("", std::nullopt);
  }
  Answer refusal = Answer::Failure(kInternal);
  const auto folder = ResolveMediaPath(path, refusal);
  if (!folder) {
    return refusal;
  }
  std::error_code failure;
  std::vector<std::string> paths;
  for (fs::directory_iterator entry(*folder, failure), end; !failure && entry != end;
       entry.increment(failure)) {
    // A link that leads out of the roots counts as missing.
    if (!entry->is_symlink() || MaySee(RealPath(entry->path().string()))) {
      paths.push_back(entry->path().string());
    }
  }
  if (failure) {
    return Answer::Failure(kBadRequest, "The server cannot read this folder.");
  }
  std::sort(paths.begin(), paths.end(), orvo::NameComesBefore);
  for (const std::string& entry : paths) {
    listing.Add(entry, false);
  }
  return listing.Finish(*folder, ParentOf(*folder));
}

}  // namespace webapi
