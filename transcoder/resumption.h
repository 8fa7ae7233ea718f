// The command line of a run that goes on where another one has failed.
#pragma once

#include <string>
#include <vector>

#include "transcoder/segment_cutter.h"

namespace orvo::transcoder {

// `arguments` make the segments of `plan`. The result makes the same ones from `number` on.
std::vector<std::string> ResumedAt(std::vector<std::string> arguments, const SegmentPlan& plan,
                                   int number);

// `arguments` make a stream with the film's clock. The result makes it from this second on.
std::vector<std::string> ResumedAt(std::vector<std::string> arguments, double start);

}  // namespace orvo::transcoder
