// What a film is converted to, as command lines.
#pragma once

#include <json/value.h>

#include <optional>
#include <string>
#include <vector>

#include "convert/work_folder.h"
#include "metadata/video_metadata.h"

namespace convert {

// H.264 and AAC in MP4: what browsers and televisions play.
struct Profile {
  const char* name;
  int height;  // of the largest picture, with a width of 16:9; a smaller film keeps its size
};

inline constexpr char kUsualProfile[] = "mp4";

// The profile of this name, or the usual one for ""; nothing for an unknown name.
std::optional<Profile> FindProfile(const std::string& name);

// The tracks of the film that its result has: at most 16 sounds, and at most 16 subtitles of text
// inside the film.
std::vector<Json::Value> SoundsOf(const LibOrvoQMX::VideoMetaData& film);
std::vector<Json::Value> TextsOf(const LibOrvoQMX::VideoMetaData& film);

// The size of the result's picture, as "WIDTHxHEIGHT", with even numbers.
std::string SizeFor(const LibOrvoQMX::VideoMetaData& film, const Profile& profile);

// The command that converts the film from piece `first` on. The transcoder gets the film as an open
// file.
std::vector<std::string> ConversionCommand(const LibOrvoQMX::VideoMetaData& film,
                                           const Profile& profile, const WorkFolder& folder,
                                           int first);

// The command that makes one file of the pieces, which it reads from standard input, and of the
// film's text subtitles. `filmAddress` leads to the open film.
std::vector<std::string> JoinCommand(const LibOrvoQMX::VideoMetaData& film,
                                     const WorkFolder& folder, const std::string& filmAddress);

// What is wrong with the joined file as a conversion of the film; "" for nothing.
std::string Difference(const LibOrvoQMX::VideoMetaData& film,
                       const LibOrvoQMX::VideoMetaData& joined);

}  // namespace convert
