// What would be done to a film, by which command, and why. Nothing is opened or started for it.
#pragma once

#include <json/value.h>

#include <string>
#include <vector>

#include "metadata/video_metadata.h"
#include "webapi/choice/profiles.h"

namespace webapi {

// The formats that films are streamed in, as the API calls them.
std::vector<std::string> Formats();

// The transcoder's command line from the film's start. What is only known when a stream is opened
// stands as "STREAM_ID"; a pipe is given as standard output. Empty for a profile of a format that
// is not there, and for a film that the profile cannot be used for.
std::vector<std::string> CommandOf(const std::string& format, const Profile& profile,
                                   const LibOrvoQMX::VideoMetaData& film,
                                   const std::string& device);

// One object for each profile of `format`, or of every format for "": "key", "format",
// "content_type", "method" ("remux", "transcode" or "refused"), "why", "default" (whether it is the
// one for a viewer who names none), "width", "height", "bit_rate" (bit/s) and "command", one line
// for a shell. A refusal has 0, "" and the library's word as "reason".
Json::Value ExplainProfiles(const LibOrvoQMX::VideoMetaData& film, const std::string& device,
                            const std::string& format = "");

// An object of "fits", "why" and "content_type": can the client play the file as it is?
Json::Value ExplainDirect(const LibOrvoQMX::VideoMetaData& film, const std::string& userAgent,
                          const std::string& device);

}  // namespace webapi
