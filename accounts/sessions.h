// Sessions. A login creates one, and it identifies the account until it ends.
//
// The id of a session is a secret that only the client has. Sessions of this machine have random
// ids and files in "/run/mirevo/sessions" (session_folder.h). Sessions of a cluster have ids from
// which each machine with the key reads the login, and files in "sessions" of the shared state.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "accounts/accounts.h"
#include "accounts/session_folder.h"

namespace accounts {

// A further login ends the account's session that was unused for the longest time.
inline constexpr int kSessionsPerAccount = 32;

// Begins a session of an account and returns its id; "" if it cannot be stored. `now`: seconds
// since the epoch.
std::string BeginSession(const Account& account, int64_t now);

// The account of a session; this counts as a use. Nothing if the session does not exist or has
// ended, or if the account was removed or has a new password.
std::optional<Account> UseSession(const std::string& id, int64_t now);

void EndSession(const std::string& id);

// The same for a cluster. The caller makes the id, which nobody else can make, and reads the login
// from it. Begins a session of the account that `id` names; false if it cannot be stored.
bool BeginSharedSession(const std::string& id, const Account& account, int64_t now);
// The account of such a session. A machine without the session's file counts the idle time from the
// login. A login more than five minutes in the future counts as none until then.
std::optional<Account> UseSharedSession(const std::string& id, const Login& login, int64_t now);
// Ends it on all machines with the same state.
void EndSharedSession(const std::string& id, const Login& login, int64_t now);

}  // namespace accounts
