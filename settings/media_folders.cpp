#include "settings/media_folders.h"

#include <json/value.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <climits>
#include <functional>
#include <optional>

#include "platform/plat.h"
#include "settings/settings_lock.h"
#include "util/json_utils.h"
#include "util/paths.h"
#include "util/state_reading.h"

namespace settings {
namespace {

using orvo::LiesWithin;
using orvo::RealPath;
using Paths = std::vector<std::string>;

constexpr char kAddedFile[] = "/var/packages/Mirevo/etc/added_folders";
constexpr size_t kMostFolders = 100;

// The real ones, whatever the system root is: nobody keeps films there.
constexpr std::array kSystemFolders = {"/proc", "/sys", "/dev", "/etc", "/boot"};
constexpr std::array kStateFolders = {"/var/packages/Mirevo", "/tmp/Mirevo", "/run/mirevo",
                                      "/etc.defaults",        "/etc/mirevo", "/etc/orvo"};

bool IsControl(unsigned char c) {
  return c < 0x20 || c == 0x7f;
}

bool IsPath(const std::string& text) {
  return text.starts_with('/') && text.size() < PATH_MAX && LibMirevo::IsJsonText(text) &&
         std::none_of(text.begin(), text.end(), IsControl);
}

bool IsFolder(const std::string& path) {
  struct stat status {};
  return stat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode);
}

bool IsSystems(const std::string& path) {
  return std::any_of(kSystemFolders.begin(), kSystemFolders.end(),
                     [&](const char* folder) { return LiesWithin(path, folder); });
}

// Films among the files of the service would be removed with them, and its files would be shown.
bool IsState(const std::string& path) {
  return std::any_of(kStateFolders.begin(), kStateFolders.end(), [&](const char* folder) {
    const std::string state = orvo::SystemPath(folder);
    const std::string real = RealPath(state);
    return LiesWithin(path, state) || LiesWithin(state, path) ||
           (!real.empty() && (LiesWithin(path, real) || LiesWithin(real, path)));
  });
}

// Can a folder with this real path be a media folder?
FolderOutcome Judge(const std::string& path) {
  if (!IsFolder(path)) {
    return FolderOutcome::kNoFolder;
  }
  if (path == "/") {
    return FolderOutcome::kWholeDisk;
  }
  if (IsSystems(path)) {
    return FolderOutcome::kSystem;
  }
  if (IsState(path)) {
    return FolderOutcome::kState;
  }
  return access(path.c_str(), R_OK | X_OK) == 0 ? FolderOutcome::kDone : FolderOutcome::kUnreadable;
}

// The list in a file; empty without the file. Nothing for a file that cannot be read or is no list.
std::optional<Paths> ReadList(const char* file) {
  Json::Value content(Json::arrayValue);
  const auto reading = orvo::ReadStateJson(orvo::SystemPath(file), content);
  const bool isKnown = reading == orvo::JsonReading::kRead || reading == orvo::JsonReading::kAbsent;
  if (!isKnown || !content.isArray() ||
      !std::all_of(content.begin(), content.end(),
                   [](const Json::Value& path) { return path.isString(); })) {
    return std::nullopt;
  }
  Paths paths;
  for (const Json::Value& path : content) {
    paths.push_back(path.asString());
  }
  return paths;
}

bool WriteList(const char* file, const Paths& paths) {
  Json::Value content(Json::arrayValue);
  for (const std::string& path : paths) {
    content.append(path);
  }
  return WriteSettings(file, content);
}

bool Has(const Paths& paths, const std::string& path) {
  return std::find(paths.begin(), paths.end(), path) != paths.end();
}

struct Lists {
  Paths added;
  Paths all;
};

// Applies a change to both lists and writes them, unless it returns a failure. The list of the
// added ones comes first: the next start makes the other one from it.
FolderOutcome Change(const std::function<FolderOutcome(Lists& lists)>& change) {
  const auto lock = HoldSettings();
  const auto added = ReadList(kAddedFile);
  const auto all = ReadList(kMediaRootsFile);
  if (!lock.IsHeld() || !added || !all) {
    return lock.IsHeld() ? FolderOutcome::kDamaged : FolderOutcome::kFailed;
  }
  Lists lists{*added, *all};
  const FolderOutcome outcome = change(lists);
  if (outcome != FolderOutcome::kDone) {
    return outcome;
  }
  const bool isWritten =
      WriteList(kAddedFile, lists.added) && WriteList(kMediaRootsFile, lists.all);
  return isWritten ? FolderOutcome::kDone : FolderOutcome::kFailed;
}

FolderOutcome AddTo(Lists& lists, const std::string& path) {
  if (Has(lists.all, path)) {
    return FolderOutcome::kDone;
  }
  if (std::any_of(lists.all.begin(), lists.all.end(),
                  [&](const std::string& root) { return LiesWithin(path, root); })) {
    return FolderOutcome::kInside;
  }
  if (lists.added.size() >= kMostFolders) {
    return FolderOutcome::kTooMany;
  }
  lists.added.push_back(path);
  lists.all.push_back(path);
  return FolderOutcome::kDone;
}

}  // namespace

const char* Describe(FolderOutcome outcome) {
  switch (outcome) {
    case FolderOutcome::kDone:
      return "Done.";
    case FolderOutcome::kBadText:
      return "The folder must be an absolute path, such as /srv/films, without control characters.";
    case FolderOutcome::kNoFolder:
      return "The server has no folder with this path.";
    case FolderOutcome::kUnreadable:
      return "The service is not allowed to read this folder.";
    case FolderOutcome::kWholeDisk:
      return "The whole disk cannot be a media folder. Name the folder with the films.";
    case FolderOutcome::kSystem:
      return "This folder belongs to the operating system. Name the folder with the films.";
    case FolderOutcome::kState:
      return "This folder holds files of the service itself. Name the folder with the films.";
    case FolderOutcome::kInside:
      return "This folder lies in a media folder, so its films are already shown.";
    case FolderOutcome::kTooMany:
      return "There are too many media folders. Name a folder that contains several of them.";
    case FolderOutcome::kNamed:
      return "This folder is named where the service is started. Remove it there.";
    case FolderOutcome::kDamaged:
      return "The list of media folders is damaged. Restore it, or remove it and add them again.";
    case FolderOutcome::kFailed:
      break;
  }
  return "The list of media folders could not be written.";
}

std::vector<MediaFolder> MediaFolders() {
  const Paths added = ReadList(kAddedFile).value_or(Paths());
  std::vector<MediaFolder> folders;
  for (const std::string& path : ReadList(kMediaRootsFile).value_or(Paths())) {
    folders.push_back({path, Has(added, path)});
  }
  return folders;
}

FolderOutcome AddFolder(const std::string& path) {
  if (!IsPath(path)) {
    return FolderOutcome::kBadText;
  }
  const std::string real = RealPath(path);
  const FolderOutcome outcome = real.empty() ? FolderOutcome::kNoFolder : Judge(real);
  return outcome == FolderOutcome::kDone ? Change([&](Lists& lists) { return AddTo(lists, real); })
                                         : outcome;
}

FolderOutcome RemoveFolder(const std::string& path) {
  if (!IsPath(path)) {
    return FolderOutcome::kBadText;
  }
  return Change([&](Lists& lists) {
    if (Has(lists.all, path) && !Has(lists.added, path)) {
      return FolderOutcome::kNamed;
    }
    std::erase(lists.added, path);
    std::erase(lists.all, path);
    return FolderOutcome::kDone;
  });
}

FolderOutcome NameFolders(const std::vector<std::string>& named) {
  const auto lock = HoldSettings();
  if (!lock.IsHeld()) {
    return FolderOutcome::kFailed;
  }
  auto added = ReadList(kAddedFile);
  Paths all = named;
  if (added) {
    std::erase_if(*added, [&](const std::string& path) { return Has(named, path); });
    all.insert(all.end(), added->begin(), added->end());
  }
  if (!WriteList(kMediaRootsFile, all) || (added && !WriteList(kAddedFile, *added))) {
    return FolderOutcome::kFailed;
  }
  return added ? FolderOutcome::kDone : FolderOutcome::kDamaged;
}

}  // namespace settings
