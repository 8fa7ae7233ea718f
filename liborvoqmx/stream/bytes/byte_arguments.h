// The transcoder's arguments for byte streams, as functions of the record.
#pragma once

#include <string>

#include "metadata/qmxmetadata.h"
#include "stream/pipeline/argument_adjustment.h"

namespace LibOrvoQMX {

// FFmpeg's arguments for a progressive stream. Empty if there is no profile or no picture.
ArgumentList ProgressiveArguments(const QMXMetaData& record, const PictureSizeRules& size);

// FFmpeg's arguments for a WebM stream that begins at `startSeconds`. Empty also if that lies
// beyond the film's end. AAC and MP3 are copied, because the players know them; any other audio
// becomes MP3.
ArgumentList WebMArguments(const QMXMetaData& record, const PictureSizeRules& size,
                           const std::string& audioId, unsigned startSeconds);

}  // namespace LibOrvoQMX
