// Whether a client can play a film's file as it lies on the disk.
#pragma once

#include <string>

#include "metadata/video_metadata.h"

namespace webapi {

struct DirectVerdict {
  bool fits = false;
  std::string why;          // one sentence
  std::string contentType;  // the media type to send the file with, whether it fits or not
};

// Judges by container, codecs and pixel format, for the client that names itself `userAgent`. A
// known `device` ("chromecast", "appletv", "firefox", "vlc" and so on) counts before it. Careful:
// what only some versions or machines of a client play does not fit.
DirectVerdict JudgeDirect(const LibOrvoQMX::VideoMetaData& film, const std::string& userAgent,
                          const std::string& device);

}  // namespace webapi
