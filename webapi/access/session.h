// The sessions of this service: its own, or those of all boxes of its cluster.
//
// In a cluster, the id is sealed (webapi/cluster), so a session that began on one box is valid on
// all. It tells the account, its era and the time of the login to the boxes, and nothing to others.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "accounts/accounts.h"

namespace webapi {

// Begins a session of an account and returns its id; "" if it cannot be stored or sealed. `now`:
// seconds since the epoch.
std::string BeginSession(const accounts::Account& account, int64_t now);

// The account of a session; this counts as a use. Nothing if the session does not exist or has
// ended, or if the account was removed or has another era. A session of this machine alone, as its
// commands make, is valid in a cluster, too.
std::optional<accounts::Account> UseSession(const std::string& id, int64_t now);

void EndSession(const std::string& id, int64_t now);

}  // namespace webapi
