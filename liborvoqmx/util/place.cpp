#include "util/place.h"

#include "util/file_lock.h"

namespace orvo {
namespace {

// Locks one of `count` bytes, beginning with `first`. Returns its number, or -1 if other processes
// hold all of them.
int LockOneOf(const UniqueFd& file, int first, int count) {
  for (int byte = first; byte < first + count; ++byte) {
    if (LockByte(file, byte, 0)) {
      return byte;
    }
  }
  return -1;
}

}  // namespace

std::optional<Place> Place::Take(const std::string& file, const Queue& queue) {
  UniqueFd lock = OpenLockFile(file);
  if (!lock.IsOpen()) {
    return std::nullopt;
  }
  if (LockOneOf(lock, 0, queue.places) >= 0) {
    return Place(std::move(lock));
  }
  const int waiting = LockOneOf(lock, queue.places, queue.line);
  // The processes that wait are spread over the places.
  if (waiting < 0 || !LockByte(lock, waiting % queue.places, queue.milliseconds)) {
    return std::nullopt;
  }
  UnlockByte(lock, waiting);
  return Place(std::move(lock));
}

}  // namespace orvo
