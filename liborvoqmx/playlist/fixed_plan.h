// The plan of fragments for a film that can be cut at any time.
#pragma once

#include "playlist/hls_helper.h"

namespace LibOrvoQMX {

// Writes a whole playlist for a film of `duration` seconds in fragments of `length` seconds. The
// last fragment has the remaining length.
void WriteFixedPlan(HLSHelper& playlist, int duration, int length);

}  // namespace LibOrvoQMX
