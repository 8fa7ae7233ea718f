// Files that several users of the machine write.
#pragma once

#include <string>

namespace accounts {

// Gives a file that root made to the owner of its folder: the service, which runs as another user,
// must be able to read and remove it. Does nothing if this process is not root.
void LeaveToFolderOwner(const std::string& path);

}  // namespace accounts
