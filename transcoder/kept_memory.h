// The memory of packets, which come and go in large pieces.
#pragma once

namespace orvo::transcoder {

// From here on this process keeps freed memory for the next packets. The allocator's own rule gives
// large pieces back, and the kernel clears them each time: that costs more than to copy them.
void KeepMemory();

// From here on this process gives freed packets back at once. An encoder makes few of them in a
// second.
void SpareMemory();

// Gives what is free back to the kernel, before a long pause.
void GiveMemoryBack();

}  // namespace orvo::transcoder
