// Sessions: what a login gives, and what stands for the account until it ends.
//
// The id of a session is a secret that only the client has. Here it is a file named by the id's
// SHA-256 in "/run/mirevo/sessions": JSON with the account and the era it was begun in. The file's
// modification time is the last use.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "accounts/accounts.h"

namespace accounts {

// A session ends when it has not been used for this long, and at the latest after the other.
inline constexpr int64_t kSessionIdleSeconds = 30 * 24 * 3600;
inline constexpr int64_t kSessionSeconds = 180 * 24 * 3600;
// An account's oldest session gives way to one more than these.
inline constexpr int kSessionsPerAccount = 32;

// Begins a session of an account. Its id; "" when it cannot be kept. `now`: seconds of the
// calendar.
std::string BeginSession(const Account& account, int64_t now);

// Whose session this is; it counts as used. Nothing for one that never was, has ended, or whose
// account is gone or has another password now.
std::optional<Account> UseSession(const std::string& id, int64_t now);

void EndSession(const std::string& id);

}  // namespace accounts
