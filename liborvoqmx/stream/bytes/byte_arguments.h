// The transcoder's arguments of byte streams, as functions of the record.
#pragma once

#include <string>

#include "metadata/qmxmetadata.h"
#include "stream/pipeline/argument_adjustment.h"

namespace LibOrvoQMX {

// Those of FFmpeg for a progressive stream: empty without a profile or a picture.
ArgumentList ProgressiveArguments(const QMXMetaData& record, const PictureSizeRules& size);

// Those of FFmpeg for a WebM stream from `startSeconds` on: empty also beyond the film's end. Its
// players know AAC and MP3, which are copied; any other audio becomes MP3.
ArgumentList WebMArguments(const QMXMetaData& record, const PictureSizeRules& size,
                           const std::string& audioId, unsigned startSeconds);

}  // namespace LibOrvoQMX
