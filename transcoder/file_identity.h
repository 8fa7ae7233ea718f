// What tells one version of a file from another.
#pragma once

#include <string>

namespace orvo::transcoder {

// The file's size and modification time; "" when there is none.
std::string FileIdentity(const std::string& path);

}  // namespace orvo::transcoder
