#include "webapi/access/session.h"

#include <utility>
#include <vector>

#include "accounts/secrets.h"
#include "accounts/sessions.h"
#include "util/number.h"
#include "util/qmxutils.h"
#include "webapi/cluster/cluster_keys.h"
#include "webapi/cluster/seal.h"

namespace webapi {
namespace {

using accounts::Login;

// No stream has this id, so no ticket is a session.
constexpr char kName[] = "session";

// The lines of a login. The first one only makes each id another one.
constexpr size_t kLines = 4;

std::string Pack(const Login& login, const std::string& salt) {
  return salt + "\n" + std::to_string(login.begun) + "\n" + login.era + "\n" + login.account;
}

std::optional<Login> Unpack(const std::string& text) {
  const std::vector<std::string> lines = LibOrvoQMX::StringExplode(text, "\n");
  const auto begun = lines.size() == kLines ? LibOrvoQMX::ParseNumber(lines[1]) : std::nullopt;
  return begun ? std::optional(Login{lines[3], lines[2], *begun}) : std::nullopt;
}

// Nothing if no key of the cluster has sealed the id.
std::optional<Login> LoginIn(const std::string& id) {
  for (const ClusterKey& key : OwnClusterKeys()) {
    if (const auto text = Unseal(key, kName, id)) {
      return Unpack(*text);
    }
  }
  return std::nullopt;
}

}  // namespace

std::string BeginSession(const accounts::Account& account, int64_t now) {
  if (!IsInCluster()) {
    return accounts::BeginSession(account, now);
  }
  const auto& keys = OwnClusterKeys();
  const std::string salt = keys.empty() ? "" : accounts::NewSecret();
  const std::string text = Pack({account.name, account.era, now}, salt);
  const std::string id = salt.empty() ? "" : Seal(keys.front(), kName, text);
  return !id.empty() && accounts::BeginSharedSession(id, account, now) ? id : "";
}

std::optional<accounts::Account> UseSession(const std::string& id, int64_t now) {
  if (accounts::IsSecret(id)) {
    return accounts::UseSession(id, now);
  }
  const auto login = LoginIn(id);
  return login ? accounts::UseSharedSession(id, *login, now) : std::nullopt;
}

void EndSession(const std::string& id, int64_t now) {
  accounts::EndSession(id);
  if (const auto login = LoginIn(id)) {
    accounts::EndSharedSession(id, *login, now);
  }
}

}  // namespace webapi
