// Files that several users of the machine have a hand in.
#pragma once

#include <string>

namespace accounts {

// Gives what root has made to whom its folder belongs: the service, which root may not be, must be
// able to read and remove it. Nothing for other users, whose files are their own.
void LeaveToFolderOwner(const std::string& path);

}  // namespace accounts
