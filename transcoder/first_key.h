// What one run learns for the later ones: where the film's first key frame stands.
//
// A plan counts from there. A run that starts in the middle never sees it, so the run that starts
// the film leaves it in the file "first_key_frame" beside the segments: the ticks from the film's
// start, in decimal.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace orvo::transcoder {

// Nothing when no run has said so yet, or when the file is damaged.
std::optional<int64_t> RecallFirstKey(const std::string& folder);

// Failing is no harm: a later run then has to guess.
void RememberFirstKey(const std::string& folder, int64_t ticks);

}  // namespace orvo::transcoder
