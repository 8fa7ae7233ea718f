// Counts the work of code that was compiled with -fsanitize-coverage=trace-pc: one unit for each
// basic block, and one for each 16 bytes that memchr, memcmp, memcpy and memmove look at. Unlike a
// time, the count is the same in every run.
#pragma once

#include <cstdint>

namespace linear {

// The units since the program's start.
uint64_t Work();

}  // namespace linear
