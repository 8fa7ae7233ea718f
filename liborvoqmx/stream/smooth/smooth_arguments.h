// The transcoder's arguments of a Smooth Streaming stream, as a function of the record.
#pragma once

#include "metadata/qmxmetadata.h"
#include "stream/pipeline/argument_adjustment.h"

namespace LibOrvoQMX {

// From `seekSeconds` on. Empty when this film cannot be transcoded.
ArgumentList SmoothArguments(const QMXMetaData& record, bool hardware, int seekSeconds);

}  // namespace LibOrvoQMX
