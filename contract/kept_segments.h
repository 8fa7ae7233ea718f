// How much of what was made for a CMAF stream stays on the disk.
#pragma once

#include <cstdint>

namespace orvo {

// The environment variable of the request program with the bound for each stream, in MiB.
inline constexpr char kKeptSegmentsVariable[] = "MIREVO_KEPT_SEGMENTS";

// Without that variable: an hour of 8 Mbit/s, and the sounds.
inline constexpr int kKeptSegmentsMebibytes = 4096;

constexpr uint64_t BytesOfMebibytes(uint64_t mebibytes) {
  constexpr int kBits = 20;
  return mebibytes << kBits;
}

}  // namespace orvo
