// The profiles of this appliance, and those that suit a film.
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

// The path of the profile file for this appliance's transcoding platform.
std::string ProfileFile();

// The profiles of one format: for "http", those whose key begins with "http_".
std::vector<Profile> ProfilesOf(const std::string& format);

// The effect of a profile on a film, and the reason.
struct Verdict {
  std::string method;   // "remux", "transcode" or "refused"
  std::string refusal;  // the error word of a refusal
  std::string why;      // one sentence
};
Verdict Judge(const Profile& profile, const LibOrvoQMX::VideoMetaData& film);

// A profile and its effect on a film.
struct JudgedProfile {
  Profile profile;
  Verdict verdict;
};

// All profiles of one format, each judged for a film.
std::vector<JudgedProfile> JudgeProfiles(const std::string& format,
                                         const LibOrvoQMX::VideoMetaData& film);

// The profile for a viewer who names none. Browsers must be able to play it. It copies the video if
// possible; otherwise it has the largest picture up to the film's own and 720 lines. Null if no
// profile fits.
const JudgedProfile* ChooseProfile(const std::string& format,
                                   const std::vector<JudgedProfile>& profiles,
                                   const LibOrvoQMX::VideoMetaData& film);

// The media type of a profile's output.
std::string ContentTypeOf(const Profile& profile);

}  // namespace webapi
