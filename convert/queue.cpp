#include "convert/queue.h"

#include <algorithm>
#include <array>
#include <filesystem>
#include <limits>

#include "accounts/ownership.h"
#include "convert/work_folder.h"
#include "platform/plat.h"
#include "util/private_folder.h"

namespace convert {
namespace {

namespace fs = std::filesystem;
using catalog::Database;
using catalog::Statement;

constexpr char kFile[] = "/queue.db";
constexpr char kSelect[] =
    "SELECT id, path, root, profile, state, reason, folder, seconds FROM items ";
// Writers hold the lock for the time of one commit.
constexpr char kTables[] =
    "PRAGMA busy_timeout = 5000;"
    "CREATE TABLE IF NOT EXISTS items (id INTEGER PRIMARY KEY AUTOINCREMENT, path BLOB NOT NULL,"
    " root BLOB NOT NULL, profile BLOB NOT NULL, state INTEGER NOT NULL DEFAULT 0,"
    " reason BLOB NOT NULL DEFAULT x'', folder BLOB NOT NULL DEFAULT x'',"
    " seconds INTEGER NOT NULL DEFAULT 0);"
    "CREATE TABLE IF NOT EXISTS settings (name TEXT PRIMARY KEY, value INTEGER NOT NULL);"
    "CREATE TABLE IF NOT EXISTS rules (id INTEGER PRIMARY KEY AUTOINCREMENT, folder BLOB NOT NULL,"
    " profile BLOB NOT NULL);"
    // What rules have chosen. The item is 0 if somebody else has added the film, too.
    "CREATE TABLE IF NOT EXISTS chosen (rule INTEGER NOT NULL, path BLOB NOT NULL,"
    " state BLOB NOT NULL, item INTEGER NOT NULL DEFAULT 0, PRIMARY KEY (rule, path));"
    "CREATE INDEX IF NOT EXISTS chosen_items ON chosen (item);"
    // Who has added an item.
    "CREATE TABLE IF NOT EXISTS clients (item INTEGER PRIMARY KEY, client BLOB NOT NULL);";

// The progress of a conversion whose result has not been checked.
constexpr double kNotChecked = 0.99;

constexpr std::array kNames = {"waiting", "converting", "paused", "ready", "failed", "removed"};

// Makes the folder, and answers with the path of the database in it; "" if it cannot be used.
std::string PreparePath() {
  const std::string folder = orvo::SystemPath(kQueueFolder);
  if (!orvo::MakePrivateFolder(folder)) {
    return "";
  }
  accounts::LeaveToFolderOwner(folder);
  return folder + kFile;
}

Item ItemOf(const Statement& row) {
  Item item;
  item.id = row.Number(0);
  item.path = row.Text(1);
  item.root = row.Text(2);
  item.profile = row.Text(3);
  item.state = static_cast<State>(std::clamp<int64_t>(row.Number(4), 0, kNames.size() - 1));
  item.reason = row.Text(5);
  item.folder = row.Text(6);
  item.seconds = row.Number(7);
  return item;
}

int64_t NumberOf(State state) {
  return static_cast<int64_t>(state);
}

std::optional<int64_t> NewestId(const Database& database) {
  Statement newest = database.Prepare("SELECT last_insert_rowid()");
  return newest.Step() ? std::optional(newest.Number(0)) : std::nullopt;
}

bool HasRule(const Database& database, int64_t id) {
  return database.Prepare("SELECT 1 FROM rules WHERE id = ?").With(id).Step();
}

}  // namespace

bool MayHaveRule(const std::string& path) {
  const fs::path folder(path);
  std::error_code failure;
  return fs::is_directory(folder, failure) &&
         std::find(folder.begin(), folder.end(), kResultsFolder) == folder.end();
}

const char* NameOf(State state) {
  return kNames.at(static_cast<size_t>(state));
}

Queue::Queue() : database_(PreparePath(), Database::Use::kWrite), isOpen_(database_.Run(kTables)) {
  accounts::LeaveToFolderOwner(orvo::SystemPath(kQueueFolder) + kFile);
}

// Inside a transaction. `isNew`: it was not there.
std::optional<int64_t> Queue::FindOrInsert(const std::string& path, const std::string& root,
                                           const std::string& profile, bool& isNew) const {
  Statement find = database_.Prepare(
      "SELECT id FROM items WHERE path = ? AND profile = ? AND state NOT IN (?, ?)");
  find.With(path).With(profile).With(NumberOf(State::kFailed)).With(NumberOf(State::kRemoved));
  isNew = !find.Step();
  if (!isNew) {
    return find.Number(0);
  }
  find.Reset();
  return database_.Prepare("INSERT INTO items (path, root, profile) VALUES (?, ?, ?)")
                 .With(path)
                 .With(root)
                 .With(profile)
                 .Run()
             ? NewestId(database_)
             : std::nullopt;
}

std::optional<int64_t> Queue::Add(const std::string& path, const std::string& root,
                                  const std::string& profile) {
  return AddFor("", std::numeric_limits<int64_t>::max(), path, root, profile);
}

std::optional<int64_t> Queue::AddFor(const std::string& client, int64_t most,
                                     const std::string& path, const std::string& root,
                                     const std::string& profile) {
  if (!database_.Run("BEGIN IMMEDIATE")) {
    return std::nullopt;
  }
  bool isNew = false;
  const auto id = FindOrInsert(path, root, profile, isNew);
  if (id && isNew && CountOf(client) >= most) {
    database_.Run("ROLLBACK");
    return 0;
  }
  if (id && isNew) {
    database_.Prepare("INSERT INTO clients VALUES (?, ?)").With(*id).With(client).Run();
  } else if (id) {
    database_.Prepare("UPDATE chosen SET item = 0 WHERE item = ?").With(*id).Run();
  }
  return database_.Run("COMMIT") ? id : std::nullopt;
}

int64_t Queue::CountOf(const std::string& client) const {
  Statement row = database_.Prepare("SELECT COUNT(*) FROM clients WHERE client = ?");
  row.With(client);
  return row.Step() ? row.Number(0) : 0;
}

std::optional<int64_t> Queue::AddRule(const std::string& folder, const std::string& profile) {
  if (!database_.Run("BEGIN IMMEDIATE")) {
    return std::nullopt;
  }
  std::optional<int64_t> id;
  for (const Rule& rule : Rules()) {
    id = rule.folder == folder && rule.profile == profile ? rule.id : id;
  }
  Statement insert = database_.Prepare("INSERT INTO rules (folder, profile) VALUES (?, ?)");
  if (!id && insert.With(folder).With(profile).Run()) {
    id = NewestId(database_);
  }
  return database_.Run("COMMIT") ? id : std::nullopt;
}

std::vector<Rule> Queue::Rules() const {
  std::vector<Rule> rules;
  Statement rows = database_.Prepare("SELECT id, folder, profile FROM rules ORDER BY id");
  while (rows.Step()) {
    rules.push_back({rows.Number(0), rows.Text(1), rows.Text(2)});
  }
  return rules;
}

bool Queue::RemoveRule(int64_t id) const {
  if (!database_.Run("BEGIN IMMEDIATE")) {
    return false;
  }
  Statement remove = database_.Prepare(
      "UPDATE items SET state = ?, reason = x'' "
      "WHERE state = ? AND id IN (SELECT item FROM chosen WHERE rule = ?)");
  remove.With(NumberOf(State::kRemoved)).With(NumberOf(State::kWaiting)).With(id);
  const bool isDone = HasRule(database_, id) && remove.Run() &&
                      database_.Prepare("DELETE FROM chosen WHERE rule = ?").With(id).Run() &&
                      database_.Prepare("DELETE FROM rules WHERE id = ?").With(id).Run();
  return database_.Run(isDone ? "COMMIT" : "ROLLBACK") && isDone;
}

bool Queue::AddByRule(const Rule& rule, const std::string& path, const std::string& state) {
  if (!database_.Run("BEGIN IMMEDIATE")) {
    return false;
  }
  const bool isDone = !HasRule(database_, rule.id) || Choose(rule, path, state);
  return database_.Run(isDone ? "COMMIT" : "ROLLBACK") && isDone;
}

// Inside a transaction. False on failure.
bool Queue::Choose(const Rule& rule, const std::string& path, const std::string& state) const {
  Statement chosen =
      database_.Prepare("SELECT 1 FROM chosen WHERE rule = ? AND path = ? AND state = ?");
  if (chosen.With(rule.id).With(path).With(state).Step()) {
    return true;
  }
  chosen.Reset();
  bool isNew = false;
  const auto item = FindOrInsert(path, rule.folder, rule.profile, isNew);
  return item && database_.Prepare("INSERT OR REPLACE INTO chosen VALUES (?, ?, ?, ?)")
                     .With(rule.id)
                     .With(path)
                     .With(state)
                     .With(isNew ? *item : 0)
                     .Run();
}

int64_t Queue::Waiting() const {
  Statement row = database_.Prepare("SELECT COUNT(*) FROM items WHERE state = 0");
  return row.Step() ? row.Number(0) : 0;
}

std::vector<Item> Queue::Select(const char* condition) const {
  std::vector<Item> items;
  Statement rows = database_.Prepare((std::string(kSelect) + condition).c_str());
  while (rows.Step()) {
    items.push_back(ItemOf(rows));
  }
  return items;
}

std::vector<Item> Queue::List() const {
  return Select("WHERE state < 5 ORDER BY id");
}

std::vector<Item> Queue::Removed() const {
  return Select("WHERE state = 5 ORDER BY id");
}

std::optional<Item> Queue::Find(int64_t id) const {
  Statement row = database_.Prepare((std::string(kSelect) + "WHERE id = ? AND state < 5").c_str());
  return row.With(id).Step() ? std::optional(ItemOf(row)) : std::nullopt;
}

std::optional<Item> Queue::Next(const std::vector<int64_t>& skipped) const {
  for (Item& item :
       Select("WHERE state < 3 ORDER BY state = 0, id IN (SELECT item FROM chosen), id")) {
    if (std::find(skipped.begin(), skipped.end(), item.id) == skipped.end()) {
      return std::move(item);
    }
  }
  return std::nullopt;
}

bool Queue::Remove(int64_t id) const {
  return Find(id) &&
         database_.Prepare("UPDATE items SET state = 5, reason = x'' WHERE id = ?").With(id).Run();
}

bool Queue::SetPaused(bool isPaused) const {
  return database_.Prepare("INSERT OR REPLACE INTO settings (name, value) VALUES ('paused', ?)")
      .With(isPaused ? 1 : 0)
      .Run();
}

bool Queue::IsPaused() const {
  Statement row = database_.Prepare("SELECT value FROM settings WHERE name = 'paused'");
  return row.Step() && row.Number(0) != 0;
}

bool Queue::Update(const Item& item) const {
  return database_
      .Prepare(
          "UPDATE items SET state = ?, reason = ?, folder = ?, seconds = ? "
          "WHERE id = ? AND state < 5")
      .With(NumberOf(item.state))
      .With(item.reason)
      .With(item.folder)
      .With(item.seconds)
      .With(item.id)
      .Run();
}

bool Queue::Forget(int64_t id) const {
  return database_.Prepare("DELETE FROM clients WHERE item = ?").With(id).Run() &&
         database_.Prepare("DELETE FROM items WHERE id = ?").With(id).Run();
}

double ProgressOf(const Item& item) {
  if (item.state == State::kReady) {
    return 1;
  }
  if (item.folder.empty() || item.seconds <= 0) {
    return 0;
  }
  const auto pieces = WorkFolder(item.folder).Pieces();
  const double complete = pieces.empty() ? 0 : pieces.rbegin()->first;  // the last one is in work
  return std::min(complete * kPieceSeconds / static_cast<double>(item.seconds), kNotChecked);
}

}  // namespace convert
