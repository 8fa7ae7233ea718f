#include "catalog/library_watch.h"

#include <sys/inotify.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <utility>

#include "platform/file_events.h"
#include "util/media_names.h"
#include "util/paths.h"

namespace catalog {
namespace {

namespace fs = std::filesystem;

constexpr uint32_t kMask = IN_CREATE | IN_MODIFY | IN_CLOSE_WRITE | IN_MOVED_TO | IN_MOVED_FROM |
                           IN_DELETE | IN_ATTRIB | IN_ONLYDIR | IN_DONT_FOLLOW | IN_EXCL_UNLINK;
// Events after which a folder has other entries, or other rights.
constexpr uint32_t kFolderChanges = IN_CREATE | IN_MOVED_TO | IN_MOVED_FROM | IN_DELETE;
// Each watch needs about one kilobyte of kernel memory.
constexpr size_t kMaxFolders = 65536;

std::string Join(const std::string& folder, const std::string& name) {
  return folder == "/" ? folder + name : folder + "/" + name;
}

std::string NameOf(const std::string& path) {
  return path.substr(path.rfind('/') + 1);
}

FilmChange ChangeOf(uint32_t mask) {
  return (mask & (IN_DELETE | IN_MOVED_FROM)) != 0 ? FilmChange::kGone : FilmChange::kChanged;
}

}  // namespace

LibraryWatch::LibraryWatch(std::vector<std::string> roots, OnFilm onFilm, OnFolder onFolder)
    : roots_(std::move(roots)),
      onFilm_(std::move(onFilm)),
      onFolder_(std::move(onFolder)),
      events_(inotify_init1(IN_CLOEXEC | IN_NONBLOCK)) {}

void LibraryWatch::Scan() {
  for (const std::string& root : roots_) {
    std::error_code failure;
    if (fs::is_directory(root, failure)) {
      ScanFolder(root);
    } else {
      Watch(fs::path(root).parent_path().string());
      Look(root);
    }
  }
}

// Depth first, with an explicit list, because a folder tree may be deeper than the stack.
void LibraryWatch::ScanFolder(const std::string& folder) {
  std::vector<std::string> left = {folder};
  while (!left.empty()) {
    const std::string current = std::move(left.back());
    left.pop_back();
    // The watch comes before the reading. A film that is added during the reading is then seen
    // twice, not missed.
    Watch(current);
    onFolder_(current, FilmChange::kFound);
    std::error_code failure;
    for (fs::directory_iterator entry(current, failure), end; !failure && entry != end;
         entry.increment(failure)) {
      std::error_code gone;
      const std::string path = entry->path().string();
      if (entry->symlink_status(gone).type() != fs::file_type::directory) {
        Look(path);
      } else if (!orvo::IsSystemFolderName(NameOf(path))) {
        left.push_back(path);
      }
    }
  }
}

// A root that is a film may have any name.
void LibraryWatch::Look(const std::string& path) {
  const bool isRoot = std::find(roots_.begin(), roots_.end(), path) != roots_.end();
  struct stat status {};
  if ((isRoot || orvo::IsFilmName(NameOf(path))) && lstat(path.c_str(), &status) == 0 &&
      S_ISREG(status.st_mode)) {
    onFilm_(path, FilmChange::kFound);
  }
}

bool LibraryWatch::Watch(const std::string& folder) {
  if (isFull_) {
    return false;
  }
  const int watch = folders_.size() < kMaxFolders
                        ? inotify_add_watch(events_.Get(), folder.c_str(), kMask)
                        : (errno = ENOSPC, -1);
  if (watch >= 0) {
    folders_[watch] = folder;
    return true;
  }
  if (errno == ENOSPC) {
    isFull_ = true;
    fprintf(stderr,
            "%zu folders are watched, and the system allows no more. Films that "
            "are added to %s and other folders are found when the service starts again. Raise "
            "fs.inotify.max_user_watches.\n",
            folders_.size(), folder.c_str());
  }
  return false;
}

void LibraryWatch::ForgetBelow(const std::string& folder) {
  for (const auto& [watch, path] : folders_) {
    if (orvo::LiesWithin(path, folder)) {
      inotify_rm_watch(events_.Get(), watch);
    }
  }
  std::erase_if(folders_,
                [&](const auto& entry) { return orvo::LiesWithin(entry.second, folder); });
}

void LibraryWatch::ReadEvents() {
  orvo::ForEachFileEvent(events_.Get(), [this](const inotify_event& event) { Take(event); });
}

void LibraryWatch::Take(const inotify_event& event) {
  if ((event.mask & IN_Q_OVERFLOW) != 0) {
    Scan();  // the kernel has lost some changes
    return;
  }
  const auto folder = folders_.find(event.wd);
  if (folder == folders_.end()) {
    return;
  }
  if ((event.mask & IN_IGNORED) != 0) {
    folders_.erase(folder);
    return;
  }
  if ((event.mask & IN_ATTRIB) != 0) {
    TakeRights(folder->second, event);
    return;
  }
  const std::string path = Join(folder->second, event.len > 0 ? event.name : "");
  if (!IsInRoots(path)) {
    return;  // a file beside a root that is a film
  }
  if ((event.mask & kFolderChanges) != 0 && IsInRoots(folder->second)) {
    onFolder_(folder->second, FilmChange::kChanged);
  }
  if ((event.mask & IN_ISDIR) != 0) {
    TakeFolder(path, event);
  } else {
    TakeFile(path, event);
  }
}

// Rights and times of a folder itself, for which the event has no name.
void LibraryWatch::TakeRights(const std::string& folder, const inotify_event& event) {
  if (event.len == 0 && IsInRoots(folder)) {
    onFolder_(folder, FilmChange::kChanged);
  }
}

void LibraryWatch::TakeFolder(const std::string& folder, const inotify_event& event) {
  if (orvo::IsSystemFolderName(NameOf(folder))) {
    return;
  }
  if ((event.mask & (IN_MOVED_FROM | IN_DELETE)) != 0) {
    onFolder_(folder, FilmChange::kGone);
  }
  if ((event.mask & IN_MOVED_FROM) != 0) {
    ForgetBelow(folder);
  } else if ((event.mask & (IN_CREATE | IN_MOVED_TO)) != 0) {
    ScanFolder(folder);
  }
}

void LibraryWatch::TakeFile(const std::string& file, const inotify_event& event) {
  const bool isRoot = std::find(roots_.begin(), roots_.end(), file) != roots_.end();
  struct stat status {};
  const FilmChange change = ChangeOf(event.mask);
  const bool isFile = lstat(file.c_str(), &status) == 0 && S_ISREG(status.st_mode);
  if ((isRoot || orvo::IsFilmName(NameOf(file))) && (isFile || change == FilmChange::kGone)) {
    onFilm_(file, change);
  }
}

bool LibraryWatch::IsInRoots(const std::string& path) const {
  return std::any_of(roots_.begin(), roots_.end(),
                     [&](const std::string& root) { return orvo::LiesWithin(path, root); });
}

}  // namespace catalog
