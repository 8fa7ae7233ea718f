#include "catalog/catalog.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <limits>
#include <utility>

#include "platform/plat.h"
#include "util/file_state.h"
#include "util/media_names.h"
#include "util/paths.h"
#include "util/private_folder.h"
#include "util/system_files.h"

namespace catalog {
namespace {

using orvo::FileState;

constexpr char kFolder[] = "/catalog";
constexpr char kFile[] = "/films.db";
// The version of the tables and of the words and keys in them.
constexpr uint32_t kTablesVersion = 1;
constexpr char kTables[] =
    "CREATE TABLE folders (id INTEGER PRIMARY KEY, path BLOB NOT NULL UNIQUE, state BLOB NOT NULL);"
    "CREATE TABLE entries (folder INTEGER NOT NULL, is_film INTEGER NOT NULL, key BLOB NOT NULL,"
    " name BLOB NOT NULL, words BLOB NOT NULL, PRIMARY KEY (folder, is_film, key)) WITHOUT ROWID;";

// A database counts only for the version that it was written for, which SQLite keeps as a signed
// number of 32 bits.
int64_t Version() {
  return (orvo::VersionOfNames() + kTablesVersion) & 0x7fffffffU;
}

bool HasVersion(const Database& database) {
  Statement version = database.Prepare("PRAGMA user_version");
  return version.Step() && version.Number(0) == Version();
}

std::string FolderPath() {
  return orvo::SystemPath(LibOrvoQMX::kCacheFolder) + kFolder;
}

bool IsGood(const Database& database) {
  Statement check = database.Prepare("PRAGMA quick_check(1)");
  return HasVersion(database) && check.Step() && check.Text(0) == "ok";
}

// A reader must not look into another user's folder.
Database OpenForReading() {
  const std::string folder = FolderPath();
  return Database(orvo::IsOwnFolder(folder) ? folder + kFile : "", Database::Use::kRead);
}

Entry EntryOf(const Statement& row) {
  Entry entry;
  entry.isFolder = row.Number(0) == 0;
  entry.key = row.Text(1);
  entry.name = row.Text(2);
  entry.words = row.Text(3);
  return entry;
}

// A part of what has been read from the disk.
CatalogReader::Page Cut(std::vector<Entry> entries, int64_t offset, int64_t limit) {
  std::sort(entries.begin(), entries.end(), ComesBefore);
  const auto size = static_cast<int64_t>(entries.size());
  const int64_t first = std::min(offset, size);
  const int64_t count = std::min(limit, size - first);
  CatalogReader::Page page;
  page.isLast = first + count == size;
  std::move(entries.begin() + first, entries.begin() + first + count,
            std::back_inserter(page.entries));
  return page;
}

}  // namespace

CatalogReader::CatalogReader()
    : database_(OpenForReading()),
      isUsable_(database_.IsOpen() && HasVersion(database_)),
      findFolder_(database_.Prepare("SELECT id, state FROM folders WHERE path = ?")),
      findEntries_(database_.Prepare("SELECT is_film, key, name, words FROM entries "
                                     "WHERE folder = ? ORDER BY is_film, key LIMIT ? OFFSET ?")) {}

std::optional<int64_t> CatalogReader::FindCurrent(const std::string& folder) {
  if (!isUsable_ || !findFolder_.With(folder).Step()) {
    findFolder_.Reset();
    return std::nullopt;
  }
  const int64_t id = findFolder_.Number(0);
  const std::string remembered = findFolder_.Text(1);
  findFolder_.Reset();
  const auto state = FileState::OfFolder(folder);
  // The rights to read a folder may come from elsewhere than its own state.
  return state && state->text == remembered && access(folder.c_str(), R_OK | X_OK) == 0
             ? std::optional(id)
             : std::nullopt;
}

std::optional<CatalogReader::Page> CatalogReader::ReadRemembered(int64_t folder, int64_t offset,
                                                                 int64_t limit) {
  Page page;
  const int64_t more = limit < std::numeric_limits<int64_t>::max() ? limit + 1 : limit;
  findEntries_.With(folder).With(more).With(offset);
  for (int64_t row = 0; findEntries_.Step(); ++row) {
    page.isLast = row < limit;
    Entry entry = EntryOf(findEntries_);
    if (page.isLast && IsShown(entry.name, entry.isFolder)) {
      page.entries.push_back(std::move(entry));
    }
  }
  const bool isRead = !findEntries_.HasFailed();
  findEntries_.Reset();
  return isRead ? std::optional(std::move(page)) : std::nullopt;
}

std::optional<CatalogReader::Page> CatalogReader::Read(const std::string& folder, int64_t offset,
                                                       int64_t limit) {
  // Both statements see the same state of the database.
  database_.Run("BEGIN");
  const auto remembered = FindCurrent(folder);
  auto page = remembered ? ReadRemembered(*remembered, offset, limit) : std::nullopt;
  database_.Run("COMMIT");
  if (page) {
    return page;
  }
  auto entries = ReadFolder(folder);
  return entries ? std::optional(Cut(std::move(*entries), offset, limit)) : std::nullopt;
}

// Reads all rows before anything is taken: a failure in their middle leaves the disk to be read.
bool CatalogReader::TakeRemembered(int64_t folder, const Wants& wants,
                                   std::vector<Entry>& entries) {
  findEntries_.With(folder).With(std::numeric_limits<int64_t>::max()).With(0);
  while (findEntries_.Step()) {
    if (wants(findEntries_.Number(0) == 0, findEntries_.Bytes(3))) {
      entries.push_back(EntryOf(findEntries_));
    }
  }
  const bool isRead = !findEntries_.HasFailed();
  findEntries_.Reset();
  std::erase_if(entries, [](const Entry& entry) { return !IsShown(entry.name, entry.isFolder); });
  return isRead;
}

bool CatalogReader::ForEach(const std::string& folder, const Wants& wants, const Take& take) {
  std::vector<Entry> entries;
  database_.Run("BEGIN");
  const auto remembered = FindCurrent(folder);
  const bool isRead = remembered && TakeRemembered(*remembered, wants, entries);
  database_.Run("COMMIT");
  if (!isRead) {
    auto found = ReadFolder(folder);
    if (!found) {
      return false;
    }
    entries = std::move(*found);
    std::erase_if(entries, [&](const Entry& entry) { return !wants(entry.isFolder, entry.words); });
  }
  std::for_each(entries.begin(), entries.end(), take);
  return true;
}

CatalogWriter::CatalogWriter() : path_(FolderPath() + kFile) {
  Open();
}

void CatalogWriter::Open() {
  database_.reset();
  if (!orvo::MakePrivateFolder(FolderPath())) {
    return;
  }
  database_.emplace(path_, Database::Use::kWrite);
  if (!IsGood(*database_)) {
    MakeAnew();
  }
  // Readers and the writer do not wait for each other.
  database_->Run("PRAGMA journal_mode = WAL; PRAGMA synchronous = NORMAL");
  struct stat status {};
  inode_ = stat(path_.c_str(), &status) == 0 ? status.st_ino : 0;
}

void CatalogWriter::MakeAnew() {
  database_.reset();
  for (const char* ending : {"", "-wal", "-shm"}) {
    unlink((path_ + ending).c_str());
  }
  database_.emplace(path_, Database::Use::kWrite);
  const std::string version = "PRAGMA user_version = " + std::to_string(Version());
  database_->Run(kTables);
  database_->Run(version.c_str());
  isNew_ = true;
}

void CatalogWriter::Repair() {
  struct stat status {};
  const bool isInPlace = stat(path_.c_str(), &status) == 0 && status.st_ino == inode_;
  if (!database_ || !isInPlace) {
    Open();
  }
}

bool CatalogWriter::IsCurrent(const std::string& folder) {
  Repair();
  const auto state = FileState::OfFolder(folder);
  if (!database_ || !state) {
    return false;
  }
  Statement find = database_->Prepare("SELECT 1 FROM folders WHERE path = ? AND state = ?");
  return find.With(folder).With(state->text).Step();
}

CatalogWriter::Result CatalogWriter::Remember(const std::string& folder, Trust trust) {
  Repair();
  const auto before = FileState::OfFolder(folder);
  if (!before) {
    return Forget(folder) ? Result::kDone : Result::kFailed;
  }
  if (!before->isSettled && trust == Trust::kSettledState) {
    return Result::kNotYet;
  }
  const auto entries = ReadFolder(folder);
  const auto after = FileState::OfFolder(folder);
  if (entries && (!after || after->text != before->text)) {
    return Result::kNotYet;
  }
  if (entries && Store(folder, before->text, *entries)) {
    return Result::kDone;
  }
  return Result::kFailed;
}

bool CatalogWriter::Forget(const std::string& folder) {
  if (!database_ || !database_->Run("BEGIN")) {
    return false;
  }
  const bool isDone =
      database_
          ->Prepare("DELETE FROM entries WHERE folder = (SELECT id FROM folders WHERE path = ?)")
          .With(folder)
          .Run() &&
      database_->Prepare("DELETE FROM folders WHERE path = ?").With(folder).Run();
  return database_->Run(isDone ? "COMMIT" : "ROLLBACK") && isDone;
}

bool CatalogWriter::Store(const std::string& folder, const std::string& state,
                          const std::vector<Entry>& entries) {
  if (!Forget(folder) || !database_->Run("BEGIN")) {
    database_.reset();  // the next call makes it anew if it is damaged
    return false;
  }
  bool isDone = database_->Prepare("INSERT INTO folders (path, state) VALUES (?, ?)")
                    .With(folder)
                    .With(state)
                    .Run();
  Statement insert = database_->Prepare(
      "INSERT INTO entries (folder, is_film, key, name, words) "
      "VALUES ((SELECT id FROM folders WHERE path = ?), ?, ?, ?, ?)");
  for (const Entry& entry : entries) {
    isDone = isDone && insert.With(folder)
                           .With(entry.isFolder ? 0 : 1)
                           .With(entry.key)
                           .With(entry.name)
                           .With(entry.words)
                           .Run();
  }
  isDone = database_->Run(isDone ? "COMMIT" : "ROLLBACK") && isDone;
  if (!isDone) {
    database_.reset();
  }
  return isDone;
}

void CatalogWriter::ForgetOthers(const std::vector<std::string>& roots) {
  Repair();
  if (!database_) {
    return;
  }
  std::vector<std::string> gone;
  Statement all = database_->Prepare("SELECT path FROM folders");
  while (all.Step()) {
    const std::string path = all.Text(0);
    const bool isBelow = std::any_of(roots.begin(), roots.end(), [&](const std::string& root) {
      return orvo::LiesWithin(path, root);
    });
    if (!isBelow || access(path.c_str(), F_OK) != 0) {
      gone.push_back(path);
    }
  }
  all.Reset();
  for (const std::string& path : gone) {
    Forget(path);
  }
}

}  // namespace catalog
