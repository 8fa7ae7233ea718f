// Judges whether a client can play a film's file without conversion.
#pragma once

#include <string>

#include "metadata/video_metadata.h"

namespace webapi {

struct DirectVerdict {
  bool fits = false;
  std::string why;          // one sentence
  std::string contentType;  // the media type of the file, in either case
};

// Judges by container, codecs and pixel format for the client with the User-Agent `userAgent`. A
// known `device` ("chromecast", "appletv", "firefox", "vlc" and so on) has priority over it. The
// judgement is careful: a format that only some versions or machines of a client play does not fit.
DirectVerdict JudgeDirect(const LibOrvoQMX::VideoMetaData& film, const std::string& userAgent,
                          const std::string& device);

}  // namespace webapi
