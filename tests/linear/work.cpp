// Compiled without the counting, or counting would count itself.
#include "linear/work.h"

#include <cstddef>

namespace {

constexpr size_t kBytesPerUnit = 16;

uint64_t work = 0;

void CountBytes(size_t bytes) {
  work += 1 + bytes / kBytesPerUnit;
}

}  // namespace

// The names are those that the compiler and the linker's --wrap call.
// NOLINTBEGIN(bugprone-reserved-identifier,readability-identifier-naming)
extern "C" {

void __sanitizer_cov_trace_pc();
void* __real_memchr(const void* text, int byte, size_t length);
int __real_memcmp(const void* left, const void* right, size_t length);
void* __real_memcpy(void* to, const void* from, size_t length);
void* __real_memmove(void* to, const void* from, size_t length);
void* __wrap_memchr(const void* text, int byte, size_t length);
int __wrap_memcmp(const void* left, const void* right, size_t length);
void* __wrap_memcpy(void* to, const void* from, size_t length);
void* __wrap_memmove(void* to, const void* from, size_t length);

void __sanitizer_cov_trace_pc() {
  ++work;
}

void* __wrap_memchr(const void* text, int byte, size_t length) {
  void* const found = __real_memchr(text, byte, length);
  CountBytes(found == nullptr
                 ? length
                 : static_cast<size_t>(static_cast<char*>(found) - static_cast<const char*>(text)));
  return found;
}

int __wrap_memcmp(const void* left, const void* right, size_t length) {
  CountBytes(length);
  return __real_memcmp(left, right, length);
}

void* __wrap_memcpy(void* to, const void* from, size_t length) {
  CountBytes(length);
  return __real_memcpy(to, from, length);
}

void* __wrap_memmove(void* to, const void* from, size_t length) {
  CountBytes(length);
  return __real_memmove(to, from, length);
}

}  // extern "C"
// NOLINTEND(bugprone-reserved-identifier,readability-identifier-naming)

uint64_t linear::Work() {
  return work;
}
