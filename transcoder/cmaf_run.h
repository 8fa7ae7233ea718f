// A run that makes the segments of one CMAF rendition.
#pragma once

#include <functional>
#include <string>

#include "transcoder/cmaf_command.h"
#include "transcoder/cmaf_request.h"

namespace orvo::transcoder {

// Writes segments into the request's folder, at most some ahead of the file "requested" there, and
// the rendition's header. The plan and the clock's start are in the folder above. Returns the exit
// code.
int RunCmaf(const CmafRequest& request, CmafSurroundings surroundings);

}  // namespace orvo::transcoder
