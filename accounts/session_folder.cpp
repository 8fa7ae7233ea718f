#include "accounts/session_folder.h"

#include <fcntl.h>
#include <json/value.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <filesystem>
#include <utility>
#include <vector>

#include "accounts/ownership.h"
#include "accounts/secrets.h"
#include "accounts/sessions.h"
#include "platform/io.h"
#include "util/json_utils.h"
#include "util/private_folder.h"
#include "util/state_reading.h"

namespace accounts {

// A session as its file tells it.
struct SessionFolder::Session {
  Login login;
  int64_t used = 0;
  bool isEnded = false;  // by a logout
};

namespace {

constexpr char kEnded[] = "ended";
// The precision of the last use.
constexpr int64_t kTouchSeconds = 60;

// Does nothing without the file: a machine that does not share the folder keeps no times.
void MarkUse(const std::string& path, int64_t now) {
  const std::array<timespec, 2> times = {timespec{now, 0}, timespec{now, 0}};
  utimensat(AT_FDCWD, path.c_str(), times.data(), 0);
}

bool Save(const std::string& path, const Login& login, bool isEnded) {
  Json::Value content(Json::objectValue);
  content["account"] = login.account;
  content["era"] = login.era;
  content["begun"] = static_cast<Json::Int64>(login.begun);
  if (isEnded) {
    content[kEnded] = true;
  }
  const bool isSaved = orvo::ReplaceFile(path, LibMirevo::FormatJson(content), S_IRUSR | S_IWUSR);
  LeaveToFolderOwner(path);
  return isSaved;
}

bool IsLogin(const Json::Value& content) {
  return content.isObject() && content["account"].isString() && content["era"].isString() &&
         content["begun"].isInt64();
}

Login LoginIn(const Json::Value& content) {
  return {content["account"].asString(), content["era"].asString(), content["begun"].asInt64()};
}

// The current account, if it is still the one that began the session.
std::optional<Account> AccountOf(const Login& login) {
  auto account = Find(login.account);
  return account && account->era == login.era ? account : std::nullopt;
}

// Is the account gone, or in another era? Not if the accounts cannot be read now.
bool HasLostAccount(const Login& login) {
  const auto all = List();
  return all && std::none_of(all->begin(), all->end(), [&](const Account& account) {
           return account.name == login.account && account.era == login.era;
         });
}

}  // namespace

// "" if no digest can be made.
std::string SessionFolder::PathOf(const std::string& id) const {
  const std::string digest = DigestOf(id);
  return digest.empty() ? "" : path_ + "/" + digest;
}

// Nothing if there is no such session, or if its file is damaged or cannot be read now: it may say
// that the session has ended.
std::optional<SessionFolder::Session> SessionFolder::Find(const std::string& path,
                                                          const std::optional<Login>& login) const {
  Json::Value content;
  const auto reading = orvo::ReadStateJson(path, content);
  if (reading == orvo::JsonReading::kAbsent && login) {
    return Session{*login, login->begun, false};
  }
  auto session = reading == orvo::JsonReading::kRead ? SessionIn(content, path) : std::nullopt;
  return session && (!login || session->login == *login) ? session : std::nullopt;
}

// The session in the content of this file. Nothing for a damaged one.
std::optional<SessionFolder::Session> SessionFolder::SessionIn(const Json::Value& content,
                                                               const std::string& path) {
  struct stat status {};
  if (!IsLogin(content) || stat(path.c_str(), &status) != 0) {
    return std::nullopt;
  }
  return Session{LoginIn(content), status.st_mtime, content.isMember(kEnded)};
}

void SessionFolder::EndAt(const std::string& path, const Login& login) const {
  if (id_ == Id::kALogin) {
    Save(path, login, true);
  } else {
    unlink(path.c_str());
  }
}

// Without its file, an ended session would count as used at its login. So the file is needed until
// that is too long ago.
bool SessionFolder::IsOver(const Session& session, int64_t now) const {
  const int64_t used = session.isEnded ? session.login.begun : session.used;
  return now - used > idleSeconds_ || now - session.login.begun > kSessionSeconds;
}

SessionFolder::Files SessionFolder::RemoveOver(const std::string& account, int64_t now) const {
  Files own;
  std::error_code failure;
  for (const auto& entry : std::filesystem::directory_iterator(path_, failure)) {
    // Another login is about to rename a file with an ending.
    Json::Value content;
    if (entry.path().has_extension() ||
        orvo::ReadStateJson(entry.path(), content) == orvo::JsonReading::kUnreadable) {
      continue;
    }
    const auto session = SessionIn(content, entry.path());
    if (!session || IsOver(*session, now) || HasLostAccount(session->login)) {
      unlink(entry.path().c_str());
    } else if (session->login.account == account && !session->isEnded) {
      own.emplace_back(session->used, entry.path());
    }
  }
  return own;
}

void SessionFolder::Sweep(const Account& account, int64_t now) const {
  Files own = RemoveOver(account.name, now);
  std::sort(own.begin(), own.end());
  for (size_t i = 0; i + kSessionsPerAccount <= own.size(); ++i) {
    if (const auto session = Find(own[i].second, std::nullopt)) {
      EndAt(own[i].second, session->login);
    }
  }
}

bool SessionFolder::Begin(const std::string& id, const Account& account, int64_t now) const {
  const std::string path = PathOf(id);
  if (path.empty() || !orvo::MakePrivateFolder(path_)) {
    return false;
  }
  LeaveToFolderOwner(path_);
  Sweep(account, now);
  if (!Save(path, {account.name, account.era, now}, false)) {
    return false;
  }
  MarkUse(path, now);
  return true;
}

std::optional<Account> SessionFolder::Use(const std::string& id, const std::optional<Login>& login,
                                          int64_t now) const {
  const std::string path = PathOf(id);
  const auto session = path.empty() ? std::nullopt : Find(path, login);
  // A login of tomorrow would outlive all others.
  const bool isAhead = login && login->begun - now > kClockSeconds;
  if (!session || session->isEnded || isAhead) {
    return std::nullopt;
  }
  auto account = IsOver(*session, now) ? std::nullopt : AccountOf(session->login);
  if (!account && (IsOver(*session, now) || HasLostAccount(session->login))) {
    unlink(path.c_str());
  } else if (account && now - session->used > kTouchSeconds) {
    MarkUse(path, now);
  }
  return account;
}

void SessionFolder::End(const std::string& id) const {
  if (const std::string path = PathOf(id); !path.empty()) {
    EndAt(path, Login());
  }
}

void SessionFolder::End(const std::string& id, const Login& login, int64_t now) const {
  const std::string path = PathOf(id);
  if (!path.empty() && orvo::MakePrivateFolder(path_)) {
    EndAt(path, login);
    // Many sessions may end on a machine on which none begins.
    RemoveOver(login.account, now);
  }
}

}  // namespace accounts
