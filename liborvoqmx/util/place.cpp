#include "util/place.h"

#include "util/file_lock.h"

namespace orvo {
namespace {

// Locks one of `count` bytes, beginning with `first`. Returns its number, or -1 if other processes
// hold all of them.
int64_t LockOneOf(const UniqueFd& file, int64_t first, int count) {
  for (int64_t byte = first; byte < first + count; ++byte) {
    if (LockByte(file, byte, 0)) {
      return byte;
    }
  }
  return -1;
}

}  // namespace

std::optional<Place> Place::Take(const std::string& file, const Queue& queue, int64_t first) {
  UniqueFd lock = OpenLockFile(file);
  if (!lock.IsOpen()) {
    return std::nullopt;
  }
  if (const int64_t byte = LockOneOf(lock, first, queue.places); byte >= 0) {
    return Place(std::move(lock), byte);
  }
  const int64_t waiting = LockOneOf(lock, first + queue.places, queue.line);
  // The processes that wait are spread over the places.
  const int64_t byte = first + (waiting - first) % queue.places;
  if (waiting < 0 || !LockByte(lock, byte, queue.milliseconds)) {
    return std::nullopt;
  }
  UnlockByte(lock, waiting);
  return Place(std::move(lock), byte);
}

Place::~Place() {
  if (file_.IsOpen()) {
    UnlockByte(file_, byte_);
  }
}

}  // namespace orvo
