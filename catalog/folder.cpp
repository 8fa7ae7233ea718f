#include "catalog/folder.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>
#include <memory>
#include <utility>

#include "util/media_names.h"
#include "util/name_order.h"

namespace catalog {
namespace {

struct Closer {
  void operator()(DIR* folder) const { closedir(folder); }
};
using Folder = std::unique_ptr<DIR, Closer>;

// A dangling link counts as what its name says.
bool IsFolderThere(int folder, const std::string& name) {
  struct stat status {};
  return fstatat(folder, name.c_str(), &status, 0) == 0 ? S_ISDIR(status.st_mode)
                                                        : !orvo::IsPlayableName(name);
}

// Fills in the type. Returns false for what is neither a file, a folder nor a link.
bool FindType(int folder, unsigned char type, Entry& entry) {
  struct stat status {};
  if (type == DT_UNKNOWN &&
      fstatat(folder, entry.name.c_str(), &status, AT_SYMLINK_NOFOLLOW) == 0) {
    type = IFTODT(status.st_mode);
  }
  entry.isFolder = type == DT_DIR || (type == DT_LNK && IsFolderThere(folder, entry.name));
  return entry.isFolder || type == DT_LNK || type == DT_REG;
}

}  // namespace

bool ComesBefore(const Entry& left, const Entry& right) {
  return left.isFolder != right.isFolder ? left.isFolder : left.key < right.key;
}

bool IsShown(const std::string& name, bool isFolder) {
  return name.find('/') == std::string::npos &&
         (isFolder ? !orvo::IsSystemFolderName(name) : orvo::IsPlayableName(name));
}

std::optional<std::vector<Entry>> ReadFolder(const std::string& folder) {
  const Folder open(opendir(folder.c_str()));
  if (!open) {
    return std::nullopt;
  }
  std::vector<Entry> entries;
  errno = 0;
  while (const dirent* const found = readdir(open.get())) {
    Entry entry;
    entry.name = found->d_name;
    if (FindType(dirfd(open.get()), found->d_type, entry) && IsShown(entry.name, entry.isFolder)) {
      entry.words = orvo::FoldName(entry.name);
      entry.key = orvo::NameSortKey(entry.name, entry.words);
      entries.push_back(std::move(entry));
    }
    errno = 0;
  }
  return errno == 0 ? std::optional(std::move(entries)) : std::nullopt;
}

std::string PathIn(const std::string& folder, const std::string& name) {
  return folder == "/" ? folder + name : folder + "/" + name;
}

}  // namespace catalog
