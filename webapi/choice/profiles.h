// Which renditions this appliance offers and which of them fit a film.
#pragma once

#include <json/value.h>

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

// A profile and what it would do to a film.
struct JudgedProfile {
  Profile profile;
  Verdict verdict;
};

// All profiles of one format, each judged for a film.
std::vector<JudgedProfile> JudgeProfiles(const std::string& format,
                                         const LibOrvoQMX::VideoMetaData& film);

// The one of them for a viewer who named none: what browsers play, the video copied where it can
// be, else the largest picture up to the film's own and 720 lines. Null when no profile fits.
const JudgedProfile* ChooseProfile(const std::string& format,
                                   const std::vector<JudgedProfile>& profiles,
                                   const LibOrvoQMX::VideoMetaData& film);

// The media type of what a profile produces.
std::string ContentTypeOf(const Profile& profile);

}  // namespace webapi
