// What a media folder contains for people who look for films: its films and folders.
#pragma once

#include <optional>
#include <string>
#include <vector>

namespace catalog {

struct Entry {
  std::string name;
  bool isFolder = false;  // a link counts as what it leads to
  std::string words;      // FoldName() of the name
  std::string key;        // NameSortKey() of the name
};

// Does `left` come before `right` in a listing? Folders come first, then the names as people count.
bool ComesBefore(const Entry& left, const Entry& right);

// The films and folders in a folder, in no order. Leaves out hidden entries, folders that systems
// keep for themselves, and all other files. Nothing if the folder cannot be read.
std::optional<std::vector<Entry>> ReadFolder(const std::string& folder);

// Is this the name of an entry that ReadFolder() returns?
bool IsShown(const std::string& name, bool isFolder);

// The path of an entry.
std::string PathIn(const std::string& folder, const std::string& name);

}  // namespace catalog
