// Which renditions this appliance offers and which of them fit a film.
#pragma once

#include <json/value.h>

#include <optional>
#include <string>
#include <vector>

#include "metadata/video_metadata.h"

namespace webapi {

struct Profile {
  std::string key;
  std::string value;  // the transcoder's arguments
};

// The appliance's transcoding profile file, by its transcoding platform name.
std::string ProfileFile();

// The profiles of one format ("http"): those whose key begins with it and "_".
std::vector<Profile> ProfilesOf(const std::string& format);

// What would happen to a film under a profile, and why.
struct Verdict {
  std::string method;   // "remux", "transcode" or "refused"
  std::string refusal;  // the error word of a refusal
  std::string why;      // one sentence
};
Verdict Judge(const Profile& profile, const LibOrvoQMX::VideoMetaData& film);

// The profile for a viewer who named none: what browsers play, the video copied where it can be,
// else the largest picture up to the film's own and 720 lines. Nothing when no profile fits.
std::optional<Profile> ChooseProfile(const std::string& format,
                                     const LibOrvoQMX::VideoMetaData& film);

// The media type of what a profile produces.
std::string ContentTypeOf(const Profile& profile);

}  // namespace webapi
