// Lists of transcoder arguments, fitted to a film and a client.
#pragma once

#include <string>
#include <vector>

#include "metadata/qmxmetadata.h"

namespace LibOrvoQMX {

using ArgumentList = std::vector<std::string>;

// The list with its first video bit rate as the policy has it for this film.
ArgumentList WithVideoBitrate(ArgumentList arguments, const QMXMetaData& record);

// The list with that audio encoder: "copy", "mp3" or "aac". Any other format leaves the option with
// an empty value.
ArgumentList WithAudioFormat(const ArgumentList& arguments, const std::string& format);

struct PictureSizeRules {
  bool exact;         // the picture fills the size, whatever its shape
  unsigned rotation;  // of the film, in degrees
};
// The list with its picture sizes fitted to the film.
ArgumentList WithPictureSize(const ArgumentList& arguments, const QMXMetaData& record,
                             const PictureSizeRules& rules);

}  // namespace LibOrvoQMX
