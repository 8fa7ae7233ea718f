// Pictures that lie beside films, as people's other programs name them.
#pragma once

#include <string>

#include "platform/media_file.h"

namespace webapi {

enum class Art { kPoster, kBackdrop };

// The picture for the film or folder with this real path; not open if there is none. For a film it
// is named after the film ("NAME-poster.jpg", "NAME.jpg"); a picture for the whole folder
// ("poster.jpg", "folder.jpg", "cover.jpg") counts for a film that is alone there, and for music.
orvo::MediaFile ArtBeside(const std::string& path, bool isFolder, Art art);

// FFmpeg's name of the demuxer for a picture, by its first bytes; "" for what is no picture that
// the server reads (JPEG, PNG, WebP).
std::string PictureDemuxer(const orvo::MediaFile& picture);

// The first film in a folder or in the folders right below it, whose picture stands for the folder;
// "" if there is none.
std::string FilmForFolder(const std::string& folder);

}  // namespace webapi
