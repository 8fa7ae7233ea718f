// Judges whether a client can play a film's file without conversion.
#pragma once

#include <string>

#include "metadata/video_metadata.h"
#include "webapi/choice/client.h"

namespace webapi {

struct DirectVerdict {
  bool fits = false;
  std::string why;          // one sentence
  std::string contentType;  // the media type of the file, in either case
};

// Judges by container, codecs, pixel format and dynamic range. A known `device` ("chromecast",
// "appletv", "firefox", "vlc" and so on) has priority over the User-Agent, and the codecs that the
// client names are added to those that are known of it. The judgement is careful: a format that
// only some versions or machines of a client play does not fit.
DirectVerdict JudgeDirect(const LibOrvoQMX::VideoMetaData& film, const Client& client);

}  // namespace webapi
