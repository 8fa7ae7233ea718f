// Explains what the server would do with a film, with which command, and why. It opens and starts
// nothing.
#pragma once

#include <json/value.h>

#include <string>
#include <vector>

#include "metadata/video_metadata.h"
#include "webapi/choice/client.h"
#include "webapi/choice/profiles.h"

namespace webapi {

// The streaming formats, by their names in the API.
std::vector<std::string> Formats();

// The transcoder's command line from the film's start. "STREAM_ID" replaces values that are unknown
// before a stream is opened; standard output replaces a pipe. Empty for an unknown format, and if
// the profile does not suit the film.
std::vector<std::string> CommandOf(const std::string& format, const Profile& profile,
                                   const LibOrvoQMX::VideoMetaData& film,
                                   const std::string& device);

// One object for each profile of `format`, or of all formats for "": "key", "format",
// "content_type", "method" ("remux", "transcode" or "refused"), "why", "default" (the choice for a
// viewer who names no profile), "width", "height", "bit_rate" (bit/s), "speed" (how many seconds of
// the film this machine makes in one, if it is known), "hardware" (true where a video engine
// encodes) and "command", one line for a shell. In a refusal these values are 0 or "", and "reason"
// is the library's word.
Json::Value ExplainProfiles(const LibOrvoQMX::VideoMetaData& film, const std::string& device,
                            const std::string& format = "");

// The profiles among these (ExplainProfiles) that are worth offering: those whose pictures are not
// larger than the film's, and the default of each format.
Json::Value Offers(const Json::Value& profiles, const LibOrvoQMX::VideoMetaData& film);

// An object of "fits", "why" and "content_type": can the client play the file without conversion?
Json::Value ExplainDirect(const LibOrvoQMX::VideoMetaData& film, const Client& client);

}  // namespace webapi
