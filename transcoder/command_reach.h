// What an FFmpeg command needs of the machine.
#pragma once

#include <string>
#include <vector>

#include "platform/confinement.h"

namespace orvo::transcoder {

// The films that this command reads, the folder that it writes into and whether it uses devices for
// pictures.
Reach ReachOf(const std::vector<std::string>& command);

}  // namespace orvo::transcoder
