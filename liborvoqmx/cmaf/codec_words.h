// Names of codecs by RFC 6381.
#pragma once

#include <string>

#include "metadata/video_metadata.h"

namespace LibOrvoQMX {

// The name of the film's first video track in MP4, with profile and level; "" for a codec that is
// not copied into MP4.
std::string PictureCodec(const VideoMetaData& film);

// The name of a sound track; "" for a codec that is not copied into MP4.
std::string SoundCodec(const Json::Value& track);

// Does a client that plays `codecs` (full or bare names, with commas) play `codec`? A full name of
// H.264 or HEVC sets bounds for profile and level. Other full names stand for their codec.
bool PlaysCodec(const std::string& codecs, const std::string& codec);

}  // namespace LibOrvoQMX
