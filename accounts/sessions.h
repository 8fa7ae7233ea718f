// Sessions. A login creates one, and it identifies the account until it ends.
//
// The id of a session is a secret that only the client has. The server has a file in
// "/run/mirevo/sessions" whose name is the id's SHA-256: JSON with the account and the era of the
// login. The file's modification time is the last use.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "accounts/accounts.h"

namespace accounts {

// A session ends after this time without use, and after the second time in any case.
inline constexpr int64_t kSessionIdleSeconds = 30 * 24 * 3600;
inline constexpr int64_t kSessionSeconds = 180 * 24 * 3600;
// A further login ends the account's session that was unused for the longest time.
inline constexpr int kSessionsPerAccount = 32;

// Begins a session of an account and returns its id; "" if it cannot be stored. `now`: seconds
// since the epoch.
std::string BeginSession(const Account& account, int64_t now);

// The account of a session; this counts as a use. Nothing if the session does not exist or has
// ended, or if the account was removed or has a new password.
std::optional<Account> UseSession(const std::string& id, int64_t now);

void EndSession(const std::string& id);

}  // namespace accounts
