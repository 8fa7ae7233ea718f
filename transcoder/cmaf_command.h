// The FFmpeg command of a CMAF rendition.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "contract/cmaf.h"
#include "transcoder/cmaf_request.h"

namespace orvo::transcoder {

// FFmpeg's stream starts this much later than the film, because it has no times before 0.
inline constexpr int64_t kCmafLead = 10;  // seconds

struct CmafSurroundings {
  std::string executable;   // the stock FFmpeg
  std::string toneMapping;  // filters; empty for a film of standard dynamic range
  int progressFd = -1;      // for progress reports; below 0 for none
  bool lacksIndex = false;  // of the film: it cannot be entered at a key frame
  std::optional<int64_t> clockStart = std::nullopt;  // CmafKnowledge has it
};

// The command that writes the rendition from its first wanted segment on, in a fragmented MP4
// stream of one frame a fragment, to its standard output.
std::vector<std::string> CmafCommand(const CmafRequest& request, const CmafPlan& plan,
                                     const CmafSurroundings& surroundings);

}  // namespace orvo::transcoder
