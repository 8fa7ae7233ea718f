#include "accounts/sessions.h"

#include "accounts/secrets.h"
#include "accounts/session_folder.h"
#include "platform/plat.h"
#include "util/shared_state.h"

namespace accounts {
namespace {

SessionFolder OwnSessions() {
  return {orvo::SystemPath("/run/mirevo/sessions"), SessionFolder::Id::kNothing};
}

SessionFolder SharedSessions() {
  return {orvo::SharedStatePath("sessions"), SessionFolder::Id::kALogin};
}

}  // namespace

std::string BeginSession(const Account& account, int64_t now) {
  const std::string id = NewSecret();
  return !id.empty() && OwnSessions().Begin(id, account, now) ? id : "";
}

std::optional<Account> UseSession(const std::string& id, int64_t now) {
  return IsSecret(id) ? OwnSessions().Use(id, std::nullopt, now) : std::nullopt;
}

void EndSession(const std::string& id) {
  if (IsSecret(id)) {
    OwnSessions().End(id);
  }
}

bool BeginSharedSession(const std::string& id, const Account& account, int64_t now) {
  return SharedSessions().Begin(id, account, now);
}

std::optional<Account> UseSharedSession(const std::string& id, const Login& login, int64_t now) {
  return SharedSessions().Use(id, login, now);
}

void EndSharedSession(const std::string& id, const Login& login, int64_t now) {
  SharedSessions().End(id, login, now);
}

}  // namespace accounts
