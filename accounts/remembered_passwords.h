// Passwords that were right a moment ago.
//
// Some programs send the password with each request, and a check by its slow hash takes a tenth of
// a second and 64 MB. So a right password is remembered, for ten minutes after its last use: as a
// file in "/run/mirevo/passwords" whose name is a digest of the account, the password and the
// secret in "/run/mirevo/passwords.key". Only the service's user can read these, and they end with
// the machine's run. A new password and a removed account count at once.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "accounts/accounts.h"

namespace accounts {

inline constexpr int64_t kRememberedSeconds = 600;

// The account, if it has used this password lately. `now`: seconds since the epoch.
std::optional<Account> FindRemembered(const std::string& name, const std::string& password,
                                      int64_t now);

// Remembers a password that was right just now. A failure only means that the next check is slow.
void RememberPassword(const Account& account, const std::string& password, int64_t now);

}  // namespace accounts
