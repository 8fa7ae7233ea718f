// The folders whose films the service shows.
//
// "media_roots" holds all of them; everything that shows films reads it. "added_folders" holds
// those that an owner has added on the page; they stay when the service starts again. The others
// are named at each start, so only the one who starts the service can remove them.
#pragma once

#include <string>
#include <vector>

namespace settings {

inline constexpr char kMediaRootsFile[] = "/var/packages/Mirevo/etc/media_roots";

enum class FolderOutcome {
  kDone,
  kBadText,     // not an absolute path of at most 4095 printable bytes of UTF-8
  kNoFolder,    // there is no such folder
  kUnreadable,  // the service's user cannot read it
  kWholeDisk,   // "/"
  kSystem,      // belongs to the operating system
  kState,       // holds files of the service, or lies among them
  kInside,      // lies in a media folder
  kTooMany,
  kNamed,    // cannot be removed: it is named at the start
  kDamaged,  // the list is not one; it stays as it is
  kFailed,   // the list cannot be written
};
// A sentence for the owner.
const char* Describe(FolderOutcome outcome);

struct MediaFolder {
  std::string path;  // absolute, links resolved when it was added
  bool isAdded = false;
};
std::vector<MediaFolder> MediaFolders();

// Adds a folder, with links resolved. Adding one that is there already succeeds.
FolderOutcome AddFolder(const std::string& path);

// Removes an added folder, which need not exist any more. Succeeds if it is not in the list.
FolderOutcome RemoveFolder(const std::string& path);

// At the start of the service: these are named now, and the added ones stay. `named`: absolute
// paths. On kDamaged only the named ones are shown. On kFailed errno is set.
FolderOutcome NameFolders(const std::vector<std::string>& named);

}  // namespace settings
