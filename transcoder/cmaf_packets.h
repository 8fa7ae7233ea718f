// The packets of one track of a film, as a stream like FFmpeg's.
#pragma once

#include <string>
#include <vector>

#include "contract/cmaf.h"
#include "platform/unique_fd.h"
#include "transcoder/cmaf_request.h"

namespace orvo::transcoder {

// The command with which this program writes the packets for a rendition that is copied. It starts
// in a third of FFmpeg's time, and its times are those of the container in every run.
std::vector<std::string> CmafPacketsCommand(const CmafRequest& request);

// Runs that command: writes the packets from the request's segment on to `output`, in a fragmented
// MP4 stream of one packet a fragment. Its header describes no codec. The caller has confined this
// process. Returns the exit code.
int WriteCmafPackets(const CmafRequest& request, UniqueFd film, int output);

}  // namespace orvo::transcoder
