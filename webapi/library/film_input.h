// How FFmpeg reads a film that has large fonts attached.
#pragma once

#include <string>

#include "platform/media_file.h"
#include "platform/unique_fd.h"

namespace webapi {

// FFmpeg keeps all attachments of a film in memory, several times. Of a Matroska film with large
// ones it reads a film with an element without meaning in their place, of the same length.
class FilmInput {
 public:
  // The film outlives this object. `demuxer` is FFmpeg's name of it.
  FilmInput(const orvo::MediaFile& film, const std::string& demuxer);

  // What FFmpeg opens.
  const std::string& Address() const { return address_; }
  // The protocols that FFmpeg needs for that, with commas.
  const std::string& Protocols() const { return protocols_; }

 private:
  orvo::UniqueFd replacement_;  // the child gets it under the same number
  std::string address_;
  std::string protocols_ = "file,pipe";
};

}  // namespace webapi
