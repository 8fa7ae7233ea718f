// Adapts lists of transcoder arguments to a film and a client.
#pragma once

#include <string>
#include <vector>

#include "metadata/qmxmetadata.h"

namespace LibOrvoQMX {

using ArgumentList = std::vector<std::string>;

// The list with the policy's video bit rate for this film in place of the first one.
ArgumentList WithVideoBitrate(ArgumentList arguments, const QMXMetaData& record);

// The list with that audio encoder: "copy", "mp3" or "aac". For any other format the option has an
// empty value.
ArgumentList WithAudioFormat(const ArgumentList& arguments, const std::string& format);

struct PictureSizeRules {
  bool exact;         // the picture fills the size and may change its shape
  unsigned rotation;  // of the film's video, in degrees
};
// The list with picture sizes that suit the film.
ArgumentList WithPictureSize(const ArgumentList& arguments, const QMXMetaData& record,
                             const PictureSizeRules& rules);

}  // namespace LibOrvoQMX
