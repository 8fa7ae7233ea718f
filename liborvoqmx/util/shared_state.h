// The state that several machines with the same users share: accounts, history, sessions.
//
// Without sharing, it is in "/var/packages/Mirevo/etc". If that folder has an entry "shared", a
// folder on network storage or a link to one, the state is there.
#pragma once

#include <string>

#include "platform/export.h"

namespace orvo {

// Is there such an entry? Also true if the storage behind it is missing now, so that this machine
// does not fall back to a state of its own.
ORVO_API bool IsStateShared();

// The path of the file or folder of this name.
ORVO_API std::string SharedStatePath(const std::string& name);

}  // namespace orvo
