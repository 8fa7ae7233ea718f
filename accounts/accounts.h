// The accounts: who may use the system, and which films each account may see.
//
// The file is "/var/packages/Mirevo/etc/accounts", or on storage that several machines share
// (util/shared_state.h); only its owner can read it. A change holds the lock "accounts.lock" beside
// the file and replaces the file at once, so readers need no lock.
#pragma once

#include <optional>
#include <string>
#include <vector>

namespace accounts {

struct Account {
  std::string name;
  bool owner = false;              // sees the status, closes any stream
  std::vector<std::string> roots;  // absolute paths; empty for all served films
  // Changes with the password and with EndSessions. Sessions and links name the era in which they
  // were made, so both end them, on all machines that read this file.
  std::string era;
};

// The result of a change. `Describe` returns a sentence for it.
enum class Outcome {
  kDone,
  kBadName,      // not 1 to 64 letters, digits and ". _ - @", the first a letter or a digit
  kBadPassword,  // shorter than 8 bytes or longer than 1024
  kBadRoot,      // not an absolute path, in UTF-8, of an existing file or folder
  kExists,
  kNotFirst,   // there are accounts already
  kLastOwner,  // nobody could manage the system
  kUnknown,
  kDamaged,  // the file is not a list of accounts; it stays as it is
  kFailed,   // the file cannot be written, or the password cannot be hashed
};
const char* Describe(Outcome outcome);

// The accounts in the order of their names. Nothing if the file is damaged.
std::optional<std::vector<Account>> List();

// Is a login needed? Also true for a damaged file, so that damaging it opens nothing.
bool AreNeeded();

std::optional<Account> Find(const std::string& name);

// Creates an account. The first one is an owner, whatever `owner` says, because there must be one.
Outcome Create(const std::string& name, const std::string& password, bool owner,
               const std::vector<std::string>& roots);
// Creates an owner, if there are no accounts yet; otherwise kNotFirst.
Outcome CreateFirst(const std::string& name, const std::string& password);
Outcome Remove(const std::string& name);
// The same, but the last owner stays.
Outcome RemoveUnlessLastOwner(const std::string& name);
// Ends all the account's sessions and links.
Outcome SetPassword(const std::string& name, const std::string& password);
// The same without a new password.
Outcome EndSessions(const std::string& name);
// Sets the account's media roots; an empty list means all served films.
Outcome GrantRoots(const std::string& name, const std::vector<std::string>& roots);

// The account, if the password is right. Takes the same time for an account that does not exist.
std::optional<Account> Verify(const std::string& name, const std::string& password);

}  // namespace accounts
