// The register's entry of a transcoder that was admitted for hardware and encodes in software.
#pragma once

#include <sys/types.h>

namespace orvo::transcoder {

inline constexpr int kExitNoSeat = 75;  // EX_TEMPFAIL: no place for one more software transcoder

// Makes this process's entry in the register one of a software transcoder, under the limit of
// these. True if it has no entry for hardware. False, with the entry gone, if there is no place.
bool TakeSoftwareSeat();

// The same for another process of this user.
bool TakeSoftwareSeatOf(pid_t pid);

}  // namespace orvo::transcoder
