#include "accounts/remembered_passwords.h"

#include <sys/stat.h>

#include "accounts/ownership.h"
#include "accounts/secrets.h"
#include "accounts/session_folder.h"
#include "platform/io.h"
#include "platform/plat.h"
#include "util/private_folder.h"
#include "util/qmxutils.h"

namespace accounts {
namespace {

constexpr char kStateFolder[] = "/run/mirevo";
constexpr char kKeyFile[] = "/run/mirevo/passwords.key";

SessionFolder Folder() {
  return {orvo::SystemPath("/run/mirevo/passwords"), SessionFolder::Id::kNothing,
          kRememberedSeconds};
}

// "" if there is none.
std::string Key() {
  const std::string key = LibOrvoQMX::ReadFile(orvo::SystemPath(kKeyFile));
  return IsSecret(key) ? key : "";
}

// If two requests make a key at the same time, one of their passwords is forgotten.
std::string KeyToWrite() {
  const std::string known = Key();
  const std::string path = orvo::SystemPath(kKeyFile);
  const std::string key = known.empty() ? NewSecret() : known;
  const bool isStored =
      !known.empty() || (!key.empty() && orvo::MakePrivateFolder(orvo::SystemPath(kStateFolder)) &&
                         orvo::ReplaceFile(path, key, S_IRUSR | S_IWUSR));
  LeaveToFolderOwner(path);
  return isStored ? key : "";
}

// Neither a name nor a password contains a zero byte.
std::string IdOf(const std::string& key, const std::string& name, const std::string& password) {
  return DigestOf(key + '\0' + name + '\0' + password);
}

}  // namespace

std::optional<Account> FindRemembered(const std::string& name, const std::string& password,
                                      int64_t now) {
  const std::string key = Key();
  const std::string id = key.empty() ? "" : IdOf(key, name, password);
  return id.empty() ? std::nullopt : Folder().Use(id, std::nullopt, now);
}

void RememberPassword(const Account& account, const std::string& password, int64_t now) {
  const std::string key = KeyToWrite();
  const std::string id = key.empty() ? "" : IdOf(key, account.name, password);
  if (!id.empty()) {
    Folder().Begin(id, account, now);
  }
}

}  // namespace accounts
