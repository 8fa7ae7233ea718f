// The folders that hold this system's state, some of them in places where every user of the machine
// may make folders.
#pragma once

#include <string>

#include "platform/export.h"

namespace orvo {

// Is there a folder of state that another user has made, or may change? Returns a sentence about
// it, or "" if all folders that exist belong to this user. Nothing may be read from or written to
// the state otherwise: whoever owns a folder decides what its links and files are.
ORVO_API std::string StateProblem();

// Does the folder (not a link to one) belong to this process's user or to root, and can no other
// user write to it?
ORVO_API bool IsSafeFolder(const std::string& path);

}  // namespace orvo
