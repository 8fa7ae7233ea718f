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

// The profiles of one format that this machine offers: for "http", those whose key begins with
// "http_". The profiles of an engine need its proof (engine_rows.h).
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
  double speed = 0;  // how many seconds of film this machine makes in one; 0 if that is not known
};

// All profiles of one format, each judged for a film.
std::vector<JudgedProfile> JudgeProfiles(const std::string& format,
                                         const LibOrvoQMX::VideoMetaData& film);

// The profile for a viewer who names none. Browsers must be able to play it. It copies the video if
// possible; otherwise it has the largest picture up to the film's own and 720 lines that this
// machine makes in time, or that it makes fastest if none is. If that is smaller than the largest
// one, its reason says why. Null if no profile fits.
const JudgedProfile* ChooseProfile(const std::string& format, std::vector<JudgedProfile>& profiles,
                                   const LibOrvoQMX::VideoMetaData& film);

// Can a viewer who names no profile watch the film in the quality that is meant for it? False if
// this machine makes it more slowly than it is watched, or if no profile fits. A film without
// pictures and a machine that has not been measured count as in time.
bool PlaysInTime(const LibOrvoQMX::VideoMetaData& film);

// Remembers that a second of the film cost the profile's transcoder so many processor seconds.
void LearnCost(const Profile& profile, const LibOrvoQMX::VideoMetaData& film,
               double processorSeconds);

// The media type of a profile's output.
std::string ContentTypeOf(const Profile& profile);

}  // namespace webapi
