// The plans of CMAF presentations, kept with the other facts about films. To plan a film takes
// longer than all the rest of its opening.
#pragma once

#include "platform/media_file.h"
#include "state/stream_directory.h"

namespace webapi {

// Puts the plan of an earlier opening of this state of the film into the stream's directory.
// `usesAnalysis`: the plan may use the background analysis. Returns false if none is kept.
bool UseKeptPlan(const orvo::MediaFile& film, bool usesAnalysis,
                 const LibOrvoQMX::StreamDirectory& directory);

// Keeps the plan that lies in the stream's directory.
void KeepPlan(const orvo::MediaFile& film, bool usesAnalysis,
              const LibOrvoQMX::StreamDirectory& directory);

}  // namespace webapi
