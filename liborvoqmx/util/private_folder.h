// Folders that hold what is for one user of the machine alone.
#pragma once

#include <string>

#include "platform/export.h"

namespace orvo {

// Makes the folder, with missing parents, and closes it to other users, one that is there already
// included. False when there is none to be had, and for one that belongs to somebody else. Root
// may use everybody's.
ORVO_API bool MakePrivateFolder(const std::string& path);

// Is this a folder of the process's own user, or is that root?
ORVO_API bool IsOwnFolder(const std::string& path);

}  // namespace orvo
