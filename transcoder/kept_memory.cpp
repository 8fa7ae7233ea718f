#include "transcoder/kept_memory.h"

#include <malloc.h>

namespace orvo::transcoder {
namespace {

constexpr int kLargest = 32 << 20;  // bytes; glibc takes no more for a piece of its own
constexpr int kKept = 64 << 20;

}  // namespace

void KeepMemory() {
  mallopt(M_MMAP_THRESHOLD, kLargest);
  mallopt(M_TRIM_THRESHOLD, kKept);
}

void GiveMemoryBack() {
  malloc_trim(0);
}

}  // namespace orvo::transcoder
