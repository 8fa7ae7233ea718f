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
  if (const int byte = LockOneOf(lock, 0, queue.places); byte >= 0) {
    return Place(std::move(lock), byte);
  }
  const int waiting = LockOneOf(lock, queue.places, queue.line);
  // The processes that wait are spread over the places.
  const int byte = waiting % queue.places;
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
