// Subtitles as WebVTT, for players that show them over a stream.
#pragma once

#include "webapi/http/answer.h"
#include "webapi/http/request.h"

namespace webapi {

// Sends the part of a subtitle that a time span of the film shows, or all of it; answers only where
// there is none to send. The converted track is kept in the stream's directory.
Answer GetSubtitle(const Request& request);

}  // namespace webapi
