// What kind of film a metadata document describes.
#pragma once

#include <string>

#include "metadata/video_metadata.h"

namespace webapi {

// Has the film moving pictures? A cover is none.
bool HasPictures(const LibOrvoQMX::VideoMetaData& film);

bool HasSound(const LibOrvoQMX::VideoMetaData& film);

// Is it music, with or without a cover?
bool IsMusic(const LibOrvoQMX::VideoMetaData& film);

// The film's high dynamic range, as viewers know it ("HDR10", "HLG", "Dolby Vision"); "" if it has
// none.
std::string HighRangeOf(const LibOrvoQMX::VideoMetaData& film);

// FFmpeg's filters that make a picture of standard range of the film's; "" if it has that.
std::string ToneMappingOf(const LibOrvoQMX::VideoMetaData& film);

}  // namespace webapi
