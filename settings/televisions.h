// The owner's wish to show films to the televisions of the local network, which find the service by
// themselves (docs/dlna.md).
#pragma once

#include <string>

#include "settings/outcome.h"

namespace settings {

// The file of this setting. It holds secrets: only its owner can read it.
inline constexpr char kTelevisionsFile[] = "/var/packages/Mirevo/etc/televisions";

struct Televisions {
  bool areLetIn = false;
  std::string account;  // they see its films; "" for all films, where there are no accounts
  std::string device;   // the UUID by which they know the service
  std::string key;      // 43 characters of base64url: seals the names of films for them
  std::string word;     // a secret between the media server and the request program
};

// What is set. Without a usable file, nobody is let in.
Televisions ReadTelevisions();

// Shows them the films of this account. The UUID and the secrets stay as they are, or are made.
Outcome LetTelevisionsIn(const std::string& account);

// Shows them nothing. The rest stays, so that they know the service again.
Outcome KeepTelevisionsOut();

}  // namespace settings
