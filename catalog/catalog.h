// The remembered content of the media folders, in the database
// "/var/packages/Mirevo/cache/catalog/films.db".
//
// A remembered folder counts only while the folder on the disk has the state of that time
// (util/file_state.h), so a reader never sees names that are gone, and needs no other process to be
// right. Where nothing is remembered, readers look at the disk. Anyone may delete the database. It
// may also be damaged: a reader checks the type and the rights of each path before it shows it.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "catalog/database.h"
#include "catalog/folder.h"

namespace catalog {

// For one request.
class CatalogReader {
 public:
  // A part of a folder's entries, in the order of ComesBefore().
  struct Page {
    std::vector<Entry> entries;
    bool isLast = true;
  };

  CatalogReader();

  // `limit` entries of a folder after the first `offset`, remembered or from the disk. Nothing if
  // the folder cannot be read.
  std::optional<Page> Read(const std::string& folder, int64_t offset, int64_t limit);

  // Calls `take` for the entries that `wants` names by their type and words, in no order. Returns
  // false if the folder cannot be read.
  using Wants = std::function<bool(bool isFolder, std::string_view words)>;
  using Take = std::function<void(const Entry&)>;
  bool ForEach(const std::string& folder, const Wants& wants, const Take& take);

 private:
  // The number of the remembered folder; nothing if the disk must be read.
  std::optional<int64_t> FindCurrent(const std::string& folder);
  std::optional<Page> ReadRemembered(int64_t folder, int64_t offset, int64_t limit);
  bool TakeRemembered(int64_t folder, const Wants& wants, std::vector<Entry>& entries);

  Database database_;
  bool isUsable_;
  Statement findFolder_;
  Statement findEntries_;
};

// The one process that writes the database.
class CatalogWriter {
 public:
  // Opens the database, or makes a new one if it is missing, damaged or of another version.
  CatalogWriter();

  // Is the folder remembered as it is?
  bool IsCurrent(const std::string& folder);

  enum class Result {
    kDone,
    kNotYet,  // it changed in the last seconds, or while it was read
    kFailed,  // it cannot be read, or the database cannot be written
  };
  // Reads the folder and remembers it. A folder that is gone is forgotten. With kAnyState, the
  // caller makes sure that the next change changes the folder's times.
  enum class Trust { kSettledState, kAnyState };
  Result Remember(const std::string& folder, Trust trust = Trust::kSettledState);

  // Forgets all folders that are not in `roots` or do not exist.
  void ForgetOthers(const std::vector<std::string>& roots);

  // Has the database been made anew since the last call, so that nothing is remembered?
  bool TakeLoss() { return std::exchange(isNew_, false); }

 private:
  void Open();
  void MakeAnew();
  // Opens it again if the file has been deleted or a statement failed.
  void Repair();
  bool Forget(const std::string& folder);
  bool Store(const std::string& folder, const std::string& state,
             const std::vector<Entry>& entries);

  std::string path_;
  std::optional<Database> database_;
  ino_t inode_ = 0;
  bool isNew_ = false;
};

}  // namespace catalog
