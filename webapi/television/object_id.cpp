#include "webapi/television/object_id.h"

#include "webapi/cluster/seal.h"

namespace webapi {
namespace {

std::string NameFor(const Admission& admission) {
  return "television " + admission.caller.account;
}

}  // namespace

std::string ObjectIdOf(const Admission& admission, const std::string& path) {
  return Seal(admission.key, NameFor(admission), path);
}

std::optional<std::string> PathOfObject(const Admission& admission, const std::string& id) {
  return Unseal(admission.key, NameFor(admission), id);
}

}  // namespace webapi
