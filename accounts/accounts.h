// The accounts: who may use the system, and which films are whose to see.
//
// They lie in "/var/packages/Mirevo/etc/accounts", which only its owner can read. Every change is
// made under the lock "accounts.lock" beside it and replaces the file at once, so that a reader
// needs none.
#pragma once

#include <optional>
#include <string>
#include <vector>

namespace accounts {

struct Account {
  std::string name;
  bool owner = false;              // sees the status, closes any stream
  std::vector<std::string> roots;  // absolute paths; empty for all that the system serves
  // Changes with the password, and ends what was begun before: sessions and links name the one they
  // were made in.
  std::string era;
};

// What came of a change. `Describe` says it in a sentence.
enum class Outcome {
  kDone,
  kBadName,      // none of 1 to 64 letters, digits and ". _ - @", the first a letter or a digit
  kBadPassword,  // shorter than 8 bytes or longer than 1024
  kBadRoot,      // not an absolute path of an existing file or folder
  kExists,
  kUnknown,
  kDamaged,  // the file is no list of accounts: nothing is written over it
  kFailed,   // the file cannot be written, or there is no hash
};
const char* Describe(Outcome outcome);

// The accounts by name. Nothing for a file that cannot be read as one.
std::optional<std::vector<Account>> List();

// Is a login needed? Also true for a damaged file: whoever broke it shall not be let in.
bool AreNeeded();

std::optional<Account> Find(const std::string& name);

// Makes an account. The first is an owner, whatever `owner` says: somebody must be.
Outcome Create(const std::string& name, const std::string& password, bool owner,
               const std::vector<std::string>& roots);
Outcome Remove(const std::string& name);
// Ends all the account's sessions and links.
Outcome SetPassword(const std::string& name, const std::string& password);
// Makes these the account's media roots; none of them for all that the system serves.
Outcome GrantRoots(const std::string& name, const std::vector<std::string>& roots);

// The account, if the password is its own. Takes as long for an account that does not exist.
std::optional<Account> Verify(const std::string& name, const std::string& password);

}  // namespace accounts
