#include "accounts/accounts.h"

#include <json/value.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <functional>
#include <string_view>

#include "accounts/ownership.h"
#include "accounts/secrets.h"
#include "platform/io.h"
#include "platform/plat.h"
#include "util/file_lock.h"
#include "util/json_utils.h"
#include "util/shared_state.h"

namespace accounts {
namespace {

constexpr char kFolder[] = "/var/packages/Mirevo/etc";
constexpr size_t kLongestName = 64;
constexpr size_t kShortestPassword = 8;
constexpr size_t kLongestPassword = 1024;

std::string AccountsFile() {
  return orvo::SharedStatePath("accounts");
}

bool IsAbsent(const std::string& path) {
  return access(path.c_str(), F_OK) != 0 && errno == ENOENT;
}

bool IsName(const std::string& text) {
  constexpr std::string_view kOthers = "._-@";
  const auto isLetterOrDigit = [](unsigned char c) { return c < 128 && std::isalnum(c) != 0; };
  return !text.empty() && text.size() <= kLongestName && isLetterOrDigit(text.front()) &&
         std::all_of(text.begin(), text.end(), [&](char c) {
           return isLetterOrDigit(c) || kOthers.find(c) != std::string_view::npos;
         });
}

bool IsPassword(const std::string& text) {
  return text.size() >= kShortestPassword && text.size() <= kLongestPassword;
}

bool IsAccount(const Json::Value& entry) {
  return entry.isObject() && entry["password"].isString() && entry["era"].isString() &&
         entry["owner"].isBool() && entry["roots"].isArray() &&
         std::all_of(entry["roots"].begin(), entry["roots"].end(),
                     [](const Json::Value& root) { return root.isString(); });
}

bool AreAccounts(const Json::Value& content) {
  return content.isObject() && std::all_of(content.begin(), content.end(), IsAccount);
}

// The accounts as a JSON object by name; empty without a file. Nothing for a damaged file. If the
// state is shared and the file is missing, the storage may be missing, and then nobody is an owner.
std::optional<Json::Value> Load() {
  const std::string path = AccountsFile();
  Json::Value content(Json::objectValue);
  if (IsAbsent(path)) {
    return orvo::IsStateShared() ? std::nullopt : std::optional(content);
  }
  const bool isRead = LibMirevo::ReadJsonFromFileWithoutLock(path, content);
  return isRead && AreAccounts(content) ? std::optional(content) : std::nullopt;
}

Account ToAccount(const std::string& name, const Json::Value& entry) {
  Account account{name, entry["owner"].asBool(), {}, entry["era"].asString()};
  for (const Json::Value& root : entry["roots"]) {
    account.roots.push_back(root.asString());
  }
  return account;
}

// Applies `change` to the accounts and writes them, unless `change` returns a failure.
Outcome Change(const std::function<Outcome(Json::Value& content)>& change) {
  const std::string path = AccountsFile();
  PlatFSMkdirP(orvo::SystemPath(kFolder), 0, 1, geteuid(), getegid(), 0755);
  const auto lock = orvo::FileLock::Wait(path + ".lock");
  if (!lock.IsHeld()) {
    return Outcome::kFailed;
  }
  LeaveToFolderOwner(path + ".lock");
  // The first account makes the file.
  auto content = IsAbsent(path) ? std::optional(Json::Value(Json::objectValue)) : Load();
  if (!content) {
    return Outcome::kDamaged;
  }
  const Outcome outcome = change(*content);
  if (outcome != Outcome::kDone) {
    return outcome;
  }
  if (!orvo::ReplaceFile(path, LibMirevo::FormatJson(*content), S_IRUSR | S_IWUSR)) {
    return Outcome::kFailed;
  }
  LeaveToFolderOwner(path);
  return Outcome::kDone;
}

// The same for one account, which must exist.
Outcome ChangeOne(const std::string& name,
                  const std::function<Outcome(Json::Value& entry)>& change) {
  return Change([&](Json::Value& content) {
    return content.isMember(name) ? change(content[name]) : Outcome::kUnknown;
  });
}

bool PutNewEra(Json::Value& entry) {
  entry["era"] = NewSecret();
  return !entry["era"].asString().empty();
}

bool Put(const std::string& password, Json::Value& entry) {
  entry["password"] = HashPassword(password);
  return PutNewEra(entry) && !entry["password"].asString().empty();
}

// Stores the paths with links resolved. False if a path is not absolute, does not exist or is no
// text.
bool Put(const std::vector<std::string>& roots, Json::Value& entry) {
  entry["roots"] = Json::Value(Json::arrayValue);
  return std::all_of(roots.begin(), roots.end(), [&](const std::string& root) {
    char resolved[PATH_MAX];
    if (root.empty() || root.front() != '/' || realpath(root.c_str(), resolved) == nullptr ||
        !LibMirevo::IsJsonText(resolved)) {
      return false;
    }
    entry["roots"].append(resolved);
    return true;
  });
}

// Checks and stores a new account. `admit` completes the entry, or refuses it, while nobody else
// changes the accounts.
Outcome Insert(
    const std::string& name, const std::string& password, const std::vector<std::string>& roots,
    const std::function<Outcome(const Json::Value& content, Json::Value& entry)>& admit) {
  if (!IsName(name)) {
    return Outcome::kBadName;
  }
  if (!IsPassword(password)) {
    return Outcome::kBadPassword;
  }
  Json::Value entry(Json::objectValue);
  if (!Put(roots, entry)) {
    return Outcome::kBadRoot;
  }
  if (!Put(password, entry)) {
    return Outcome::kFailed;
  }
  return Change([&](Json::Value& content) {
    const Outcome outcome = admit(content, entry);
    if (outcome == Outcome::kDone) {
      content[name] = entry;
    }
    return outcome;
  });
}

}  // namespace

const char* Describe(Outcome outcome) {
  switch (outcome) {
    case Outcome::kDone:
      return "Done.";
    case Outcome::kBadName:
      return "A name must have 1 to 64 letters, digits, dots, hyphens, underscores and @ signs, "
             "and "
             "begin with a letter or a digit.";
    case Outcome::kBadPassword:
      return "A password must have 8 to 1024 bytes.";
    case Outcome::kBadRoot:
      return "A media folder must be the absolute path of an existing file or folder.";
    case Outcome::kExists:
      return "An account with this name exists already.";
    case Outcome::kNotFirst:
      return "This server has accounts already. Log in with one of them.";
    case Outcome::kLastOwner:
      return "The last owner cannot be removed. Create another owner first.";
    case Outcome::kUnknown:
      return "No account has this name.";
    case Outcome::kDamaged:
      return "The accounts file is damaged, or the shared storage with it is missing. Restore it, "
             "or remove it to start without accounts.";
    case Outcome::kFailed:
      break;
  }
  return "The accounts file could not be written.";
}

std::optional<std::vector<Account>> List() {
  const auto content = Load();
  if (!content) {
    return std::nullopt;
  }
  std::vector<Account> accounts;
  for (const std::string& name : content->getMemberNames()) {
    accounts.push_back(ToAccount(name, (*content)[name]));
  }
  return accounts;
}

bool AreNeeded() {
  const auto content = Load();
  return !content || !content->empty();
}

std::optional<Account> Find(const std::string& name) {
  const auto content = Load();
  return content && content->isMember(name) ? std::optional(ToAccount(name, (*content)[name]))
                                            : std::nullopt;
}

Outcome Create(const std::string& name, const std::string& password, bool owner,
               const std::vector<std::string>& roots) {
  return Insert(name, password, roots, [&](const Json::Value& content, Json::Value& entry) {
    entry["owner"] = owner || content.empty();
    return content.isMember(name) ? Outcome::kExists : Outcome::kDone;
  });
}

Outcome CreateFirst(const std::string& name, const std::string& password) {
  return Insert(name, password, {}, [](const Json::Value& content, Json::Value& entry) {
    entry["owner"] = true;
    return content.empty() ? Outcome::kDone : Outcome::kNotFirst;
  });
}

Outcome Remove(const std::string& name) {
  return Change([&](Json::Value& content) {
    return content.removeMember(name, nullptr) ? Outcome::kDone : Outcome::kUnknown;
  });
}

Outcome RemoveUnlessLastOwner(const std::string& name) {
  return Change([&](Json::Value& content) {
    if (!content.removeMember(name, nullptr)) {
      return Outcome::kUnknown;
    }
    const bool hasOwner = std::any_of(content.begin(), content.end(), [](const Json::Value& entry) {
      return entry["owner"].asBool();
    });
    return hasOwner ? Outcome::kDone : Outcome::kLastOwner;
  });
}

Outcome SetPassword(const std::string& name, const std::string& password) {
  if (!IsPassword(password)) {
    return Outcome::kBadPassword;
  }
  return ChangeOne(name, [&](Json::Value& entry) {
    return Put(password, entry) ? Outcome::kDone : Outcome::kFailed;
  });
}

Outcome EndSessions(const std::string& name) {
  return ChangeOne(name, [&](Json::Value& entry) {
    return PutNewEra(entry) ? Outcome::kDone : Outcome::kFailed;
  });
}

Outcome GrantRoots(const std::string& name, const std::vector<std::string>& roots) {
  return ChangeOne(name, [&](Json::Value& entry) {
    return Put(roots, entry) ? Outcome::kDone : Outcome::kBadRoot;
  });
}

std::optional<Account> Verify(const std::string& name, const std::string& password) {
  const auto content = Load();
  const bool isKnown = content && IsPassword(password) && content->isMember(name);
  const std::string hash = isKnown ? (*content)[name]["password"].asString() : "";
  return MatchesPassword(hash, password) ? std::optional(ToAccount(name, (*content)[name]))
                                         : std::nullopt;
}

}  // namespace accounts
