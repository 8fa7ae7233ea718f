// Folders that only one user of the machine may read.
#pragma once

#include <string>

#include "platform/export.h"

namespace orvo {

// Makes the folder and its missing parents, and closes it to other users, even if it already
// existed. Returns false if it cannot be made or belongs to another user. Root may use every user's
// folder.
ORVO_API bool MakePrivateFolder(const std::string& path);

// Does this folder belong to the process's user, or is that user root?
ORVO_API bool IsOwnFolder(const std::string& path);

}  // namespace orvo
