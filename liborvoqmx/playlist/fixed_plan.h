// The plan of a film's fragments where they can begin anywhere.
#pragma once

#include "playlist/hls_helper.h"

namespace LibOrvoQMX {

// Writes a whole playlist of fragments of `length` seconds for a film of `duration` seconds. The
// last fragment is as long as the rest.
void WriteFixedPlan(HLSHelper& playlist, int duration, int length);

}  // namespace LibOrvoQMX
