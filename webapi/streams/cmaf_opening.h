// What a CMAF stream keeps from its opening on, because its players have been told.
//
// The ladder depends on the speed of the machine, and the plan on the background analysis. Both may
// change while the stream is open, and the stream's directory may be made again.
#pragma once

#include <json/value.h>

#include <optional>

#include "metadata/video_metadata.h"
#include "webapi/access/ticket.h"

namespace webapi {

// The parameters of a ticket: the lines of the largest picture that this machine encodes in time,
// "" for no bound; whether the plan may use the background analysis, "" for no.
inline constexpr char kLadderParameter[] = "ladder_height";
inline constexpr char kAnalysisParameter[] = "analysis";

// Adds them to the parameters of an opening. A stream that is joined keeps its own.
void FixCmafChoices(const LibOrvoQMX::VideoMetaData& film, const std::optional<Ticket>& joined,
                    Json::Value& parameters);

// The lines of the largest row of the ladder that this machine encodes in time, or of the smallest
// one if it encodes none in time; 0 if its speed is not known.
unsigned SustainedHeight(const LibOrvoQMX::VideoMetaData& film);

}  // namespace webapi
