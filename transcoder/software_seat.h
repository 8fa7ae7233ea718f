// The register's entry of a transcoder that was admitted for hardware and encodes in software.
#pragma once

namespace orvo::transcoder {

inline constexpr int kExitNoSeat = 75;  // EX_TEMPFAIL: no place for one more software transcoder

// Makes this process's entry in the register one of a software transcoder, under the limit of
// these. True if it has no entry for hardware. False, with the entry gone, if there is no place.
bool TakeSoftwareSeat();

}  // namespace orvo::transcoder
