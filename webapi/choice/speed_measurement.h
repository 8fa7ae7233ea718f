// Measures the machine for MachineSpeed.
#pragma once

namespace webapi {

// Decodes and encodes a little film in several codecs and sizes, and stores what it cost. Takes
// some ten seconds of processor time, at most a minute. Kinds of work that this FFmpeg cannot do
// are left out. Returns false if nothing could be stored.
bool MeasureMachine();

}  // namespace webapi
