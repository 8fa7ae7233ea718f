// The transcoder's arguments for a Smooth Streaming stream, as a function of the record.
#pragma once

#include "metadata/qmxmetadata.h"
#include "stream/pipeline/argument_adjustment.h"

namespace LibOrvoQMX {

// The arguments for a start at `seekSeconds`. Empty if this film cannot be transcoded.
ArgumentList SmoothArguments(const QMXMetaData& record, bool hardware, int seekSeconds);

}  // namespace LibOrvoQMX
