// The files that remember sessions.
//
// Each session has one file, named by the SHA-256 of its id: JSON with the account, the era and the
// time of the login. The file's modification time is the last use.
#pragma once

#include <json/forwards.h>

#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "accounts/accounts.h"

namespace accounts {

// A session ends after this time without use, and after the second time in any case.
inline constexpr int64_t kSessionIdleSeconds = 30 * 24 * 3600;
inline constexpr int64_t kSessionSeconds = 180 * 24 * 3600;

// The clocks of machines that accept each other's logins and tickets may differ so much. Later ones
// would last longer than others.
inline constexpr int64_t kClockSeconds = 5 * 60;

// What a session stands for.
struct Login {
  std::string account;
  std::string era;    // of the account, at the login
  int64_t begun = 0;  // seconds since the epoch

  bool operator==(const Login& other) const {
    return account == other.account && era == other.era && begun == other.begun;
  }
};

class SessionFolder {
 public:
  // What a session's id is without its file.
  enum class Id {
    kNothing,  // so a session ends with its file
    kALogin,   // so the file of an ended session stays and says so, until the login is too old
  };
  // `path`: the folder, which is made when the first session begins.
  // A session ends after `idleSeconds` without use.
  SessionFolder(std::string path, Id id, int64_t idleSeconds = kSessionIdleSeconds)
      : path_(std::move(path)), id_(id), idleSeconds_(idleSeconds) {}

  // Remembers a session of the account that begins now. Removes ended ones, and ends the account's
  // longest unused one if it has too many. Returns false if the session cannot be stored.
  bool Begin(const std::string& id, const Account& account, int64_t now) const;

  // The account of a session; this counts as a use. Nothing if the session has ended, or if the
  // account was removed or has another era. `login`: what the id tells, for kALogin only. Without
  // it, only a file makes a session; with it, a session without a file was last used at the login.
  // A login more than five minutes in the future counts as none until then.
  std::optional<Account> Use(const std::string& id, const std::optional<Login>& login,
                             int64_t now) const;

  // Ends a session. The second one is for kALogin. It removes all sessions that are over, too.
  void End(const std::string& id) const;
  void End(const std::string& id, const Login& login, int64_t now) const;

 private:
  struct Session;
  using Files = std::vector<std::pair<int64_t, std::string>>;  // with the last uses

  std::string PathOf(const std::string& id) const;
  std::optional<Session> Find(const std::string& path, const std::optional<Login>& login) const;
  static std::optional<Session> SessionIn(const Json::Value& content, const std::string& path);
  void EndAt(const std::string& path, const Login& login) const;
  bool IsOver(const Session& session, int64_t now) const;
  // Removes the sessions that are over. Returns the account's others that have not ended.
  Files RemoveOver(const std::string& account, int64_t now) const;
  void Sweep(const Account& account, int64_t now) const;

  std::string path_;
  Id id_;
  int64_t idleSeconds_;
};

}  // namespace accounts
