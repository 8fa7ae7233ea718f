#include "accounts/sessions.h"

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
#include "platform/io.h"
#include "platform/plat.h"
#include "util/json_utils.h"
#include "util/private_folder.h"
#include "util/state_reading.h"

namespace accounts {
namespace {

constexpr char kFolder[] = "/run/mirevo/sessions";
// The precision of the last use.
constexpr int64_t kTouchSeconds = 60;

struct Session {
  std::string account;
  std::string era;
  int64_t begun = 0;
  int64_t used = 0;

  bool IsOver(int64_t now) const {
    return now - used > kSessionIdleSeconds || now - begun > kSessionSeconds;
  }
};

std::string Folder() {
  return orvo::SystemPath(kFolder);
}

// "" if the text is not an id, so that no text of a client becomes part of a path.
std::string PathOf(const std::string& id) {
  const std::string digest = IsSecret(id) ? DigestOf(id) : "";
  return digest.empty() ? "" : Folder() + "/" + digest;
}

// Nothing if the file is no session, or if it cannot be read now.
std::optional<Session> Load(const std::string& path, bool& isUnreadable) {
  struct stat status {};
  Json::Value content;
  const auto reading = orvo::ReadStateJson(path, content);
  isUnreadable = reading == orvo::JsonReading::kUnreadable;
  if (reading != orvo::JsonReading::kRead || stat(path.c_str(), &status) != 0 ||
      !content.isObject() || !content["account"].isString() || !content["era"].isString() ||
      !content["begun"].isInt64()) {
    return std::nullopt;
  }
  return Session{content["account"].asString(), content["era"].asString(),
                 content["begun"].asInt64(), status.st_mtime};
}

void MarkUse(const std::string& path, int64_t now) {
  const std::array<timespec, 2> times = {timespec{now, 0}, timespec{now, 0}};
  utimensat(AT_FDCWD, path.c_str(), times.data(), 0);
}

// The current account, if it is still the one that began the session.
std::optional<Account> AccountOf(const Session& session) {
  auto account = Find(session.account);
  return account && account->era == session.era ? account : std::nullopt;
}

// Has the session ended for good? Not if the accounts cannot be read now.
bool HasEnded(const Session& session, int64_t now) {
  const auto all = List();
  const auto isItsAccount = [&](const Account& account) {
    return account.name == session.account && account.era == session.era;
  };
  return session.IsOver(now) || (all && std::none_of(all->begin(), all->end(), isItsAccount));
}

// Removes ended sessions, and the oldest one of the account if it has too many.
void Sweep(const Account& account, int64_t now) {
  std::vector<std::pair<int64_t, std::string>> own;
  std::error_code failure;
  for (const auto& entry : std::filesystem::directory_iterator(Folder(), failure)) {
    // Another login is about to rename this file.
    if (entry.path().has_extension()) {
      continue;
    }
    bool isUnreadable = false;
    const auto session = Load(entry.path(), isUnreadable);
    if (isUnreadable) {
      continue;
    }
    if (!session || HasEnded(*session, now)) {
      unlink(entry.path().c_str());
    } else if (session->account == account.name) {
      own.emplace_back(session->used, entry.path());
    }
  }
  std::sort(own.begin(), own.end());
  for (size_t i = 0; i + kSessionsPerAccount <= own.size(); ++i) {
    unlink(own[i].second.c_str());
  }
}

}  // namespace

std::string BeginSession(const Account& account, int64_t now) {
  const std::string id = NewSecret();
  const std::string path = PathOf(id);
  if (path.empty() || !orvo::MakePrivateFolder(Folder())) {
    return "";
  }
  LeaveToFolderOwner(Folder());
  Sweep(account, now);
  Json::Value content(Json::objectValue);
  content["account"] = account.name;
  content["era"] = account.era;
  content["begun"] = static_cast<Json::Int64>(now);
  if (!orvo::ReplaceFile(path, LibMirevo::FormatJson(content), S_IRUSR | S_IWUSR)) {
    return "";
  }
  LeaveToFolderOwner(path);
  MarkUse(path, now);
  return id;
}

std::optional<Account> UseSession(const std::string& id, int64_t now) {
  const std::string path = PathOf(id);
  bool isUnreadable = false;
  const auto session = path.empty() ? std::nullopt : Load(path, isUnreadable);
  if (!session) {
    return std::nullopt;
  }
  auto account = session->IsOver(now) ? std::nullopt : AccountOf(*session);
  if (!account && HasEnded(*session, now)) {
    unlink(path.c_str());
  } else if (account && now - session->used > kTouchSeconds) {
    MarkUse(path, now);
  }
  return account;
}

void EndSession(const std::string& id) {
  const std::string path = PathOf(id);
  if (!path.empty()) {
    unlink(path.c_str());
  }
}

}  // namespace accounts
