// Whether a film can be entered at any key frame.
#pragma once

#include <string>

namespace orvo::transcoder {

// True for MPEG transport and program streams. They have no index: a seek lands between two key
// frames, and the pictures up to the next one are lost. False for everything else, and for what is
// no readable plain file.
bool LacksIndex(const std::string& path);

}  // namespace orvo::transcoder
