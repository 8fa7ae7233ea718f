#include "transcoder/kept_memory.h"

#include <malloc.h>

namespace orvo::transcoder {
namespace {

constexpr int kLargest = 32 << 20;  // bytes; glibc takes no more for a piece of its own
constexpr int kKept = 64 << 20;
// Pieces from this size on are the kernel's again as soon as they are free; so is what is free
// above the smaller ones, from the other size on.
constexpr int kSparedPiece = 4 << 10;
constexpr int kSparedTop = 16 << 10;

}  // namespace

void KeepMemory() {
  mallopt(M_MMAP_THRESHOLD, kLargest);
  mallopt(M_TRIM_THRESHOLD, kKept);
}

void SpareMemory() {
  mallopt(M_MMAP_THRESHOLD, kSparedPiece);
  mallopt(M_TRIM_THRESHOLD, kSparedTop);
  mallopt(M_TOP_PAD, 0);
}

void GiveMemoryBack() {
  malloc_trim(0);
}

}  // namespace orvo::transcoder
