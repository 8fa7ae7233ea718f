// The films that are to be converted to files which play everywhere, and the results.
//
// A database of SQLite in a folder of its own. The request program and the tools add and remove
// films; the conversion service works on them and watches the folder for changes.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "catalog/database.h"

namespace convert {

// The folder of the database, below the system root.
inline constexpr char kQueueFolder[] = "/var/packages/Mirevo/etc/conversions";

// The numbers are stored.
enum class State {
  kWaiting = 0,
  kConverting = 1,
  kPaused = 2,  // for viewers, or because the owner has paused all conversions
  kReady = 3,   // the result is complete and has been checked
  kFailed = 4,
  kRemoved = 5,  // the service removes its files, then the entry
};

// "waiting", "converting", "paused", "ready", "failed".
const char* NameOf(State state);

// Films that are converted without being named one by one: those below a folder that this machine
// cannot play in time.
struct Rule {
  int64_t id = 0;      // never used again for another rule
  std::string folder;  // its real path
  std::string profile;
};

// Can a rule have this real path? It must be a folder, and not one with results.
bool MayHaveRule(const std::string& path);

struct Item {
  int64_t id = 0;       // never used again for another film
  std::string path;     // the film's real path
  std::string root;     // the folder (or the film itself) below which no link is followed
  std::string profile;  // its name (convert/recipe.h)
  State state = State::kWaiting;
  std::string reason;   // for people: why it waits or has failed; "" for none
  std::string folder;   // its files; "" before the first start
  int64_t seconds = 0;  // the film's length; 0 before the first start
};

class Queue {
 public:
  // Creates the database if it is missing. It belongs to the service's user, also if root makes it.
  Queue();

  // False if the database cannot be opened or created. All other calls fail then.
  bool IsOpen() const { return isOpen_; }

  // Adds a film and returns its id. Returns the id of the entry that is there if the film waits, is
  // in work or is ready with this profile. Nothing if it cannot be stored.
  std::optional<int64_t> Add(const std::string& path, const std::string& root,
                             const std::string& profile);

  // The same for one client. The entries that it has added count until they are forgotten; returns
  // 0 if the film would be one more than `most`.
  std::optional<int64_t> AddFor(const std::string& client, int64_t most, const std::string& path,
                                const std::string& root, const std::string& profile);

  // All entries that are not removed, in the order of their ids.
  std::vector<Item> List() const;
  std::optional<Item> Find(int64_t id) const;

  // Marks an entry as removed. False if there is none.
  bool Remove(int64_t id) const;

  // All conversions pause until this is taken back.
  bool SetPaused(bool isPaused) const;
  bool IsPaused() const;

  // --- Rules ---

  // Adds a rule and returns its id. Returns the id of the rule that is there for the same folder
  // and profile. Nothing if it cannot be stored.
  std::optional<int64_t> AddRule(const std::string& folder, const std::string& profile);

  // All rules, in the order of their ids.
  std::vector<Rule> Rules() const;

  // Forgets a rule, and marks the films that it has added and that still wait as removed. False if
  // there is none.
  bool RemoveRule(int64_t id) const;

  // Adds a film for a rule, once for each state of the film's file: a conversion that has failed or
  // was removed is not tried again. Does nothing if the rule is gone. False on failure.
  bool AddByRule(const Rule& rule, const std::string& path, const std::string& state);

  // How many films wait.
  int64_t Waiting() const;

  // --- For the service ---

  // The film to work on: one whose conversion has begun, else the one that waits longest. Films
  // that only a rule has added come last. Skips `skipped`.
  std::optional<Item> Next(const std::vector<int64_t>& skipped) const;
  std::vector<Item> Removed() const;
  // Stores state, reason, folder and seconds, unless the entry has been removed.
  bool Update(const Item& item) const;
  // Forgets an entry for good.
  bool Forget(int64_t id) const;

 private:
  std::vector<Item> Select(const char* condition) const;
  std::optional<int64_t> FindOrInsert(const std::string& path, const std::string& root,
                                      const std::string& profile, bool& isNew) const;
  int64_t CountOf(const std::string& client) const;
  bool Choose(const Rule& rule, const std::string& path, const std::string& state) const;

  catalog::Database database_;
  bool isOpen_;
};

// The part of the work that is done, from 0 to 1.
double ProgressOf(const Item& item);

}  // namespace convert
