// Whether a film can be entered by its clock.
#pragma once

#include <string>

namespace orvo::transcoder {

// True for an MPEG transport stream whose clock jumps, as recordings do that were put together from
// several. A seek by time lands anywhere in such a film: it has to be read from its start. The
// clock is looked at in a few places, so a jump by less than half a minute may go unnoticed. False
// for everything else, and where the clock only turns over.
bool ClockJumps(const std::string& path);

}  // namespace orvo::transcoder
