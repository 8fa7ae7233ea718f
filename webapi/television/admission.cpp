#include "webapi/television/admission.h"

#include "accounts/accounts.h"
#include "settings/televisions.h"
#include "webapi/access/identity.h"

namespace webapi {
namespace {

// Without accounts everybody on this machine sees all films.
std::optional<Caller> CallerFor(const std::string& account) {
  if (account.empty()) {
    return IsLoginRequired() ? std::nullopt : std::optional(Caller{});
  }
  const auto found = accounts::Find(account);
  if (!found) {
    return std::nullopt;
  }
  Caller caller = ToCaller(*found);
  caller.isOwner = false;
  return caller;
}

}  // namespace

std::optional<Admission> AdmitTelevisions() {
  const settings::Televisions televisions = settings::ReadTelevisions();
  const auto key = ParseClusterKey(televisions.key);
  const auto caller = televisions.areLetIn ? CallerFor(televisions.account) : std::nullopt;
  return key && caller ? std::optional(Admission{televisions.word, *key, *caller}) : std::nullopt;
}

}  // namespace webapi
