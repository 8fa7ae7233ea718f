// Subtitles as WebVTT, for players that show them over a stream.
#pragma once

#include "webapi/http/answer.h"
#include "webapi/http/request.h"

namespace webapi {

// Sends the part of a subtitle in a time span of the film, or the whole subtitle. The returned
// answer is for the case that there is nothing to send. Stores the converted track in the stream's
// directory.
Answer GetSubtitle(const Request& request);

}  // namespace webapi
