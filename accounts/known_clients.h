// The clients from which accounts have logged in.
//
// Strangers who guess the password of an account must not lock out its owner, so the tries of a
// known client are counted apart. The file "/run/mirevo/known/<digest of the account>" has a digest
// of each client in a line, the newest last. Only the service's user can read it.
#pragma once

#include <string>

namespace accounts {

// A further client makes an account forget the one that logged in longest ago.
inline constexpr int kKnownClients = 32;

// Has the account logged in from this client (ClientOf in attempts.h)?
bool IsKnownClient(const std::string& account, const std::string& client);

// Remembers the client after a login. A failure only means that its tries count as a stranger's.
void RememberClient(const std::string& account, const std::string& client);

}  // namespace accounts
