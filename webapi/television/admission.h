// What televisions may do: they do not log in, so an owner names the account whose films they see.
#pragma once

#include <optional>
#include <string>

#include "webapi/cluster/cluster_keys.h"
#include "webapi/http/caller.h"

namespace webapi {

struct Admission {
  std::string word;  // the media server proves with it that it asks
  ClusterKey key{};  // seals the names of films
  Caller caller;     // the account, which is no owner here
};

// Nothing if no owner has let televisions in, or if the account is gone.
std::optional<Admission> AdmitTelevisions();

}  // namespace webapi
