// A limited number of processes that do one kind of work at a time, with a queue before them.
//
// A place is a lock on one byte of a file, and so is a place in the queue. The kernel releases both
// when the process ends for any reason.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "platform/export.h"
#include "platform/unique_fd.h"

namespace orvo {

struct Queue {
  int places;        // processes that work at a time
  int line;          // processes that may wait
  int milliseconds;  // how long each may wait
};

// A process that this one has forked meanwhile does not keep the place.
class ORVO_API Place {
 public:
  Place(Place&&) = default;
  Place& operator=(Place&&) = delete;
  Place(const Place&) = delete;
  Place& operator=(const Place&) = delete;
  ~Place();

  // Takes a place, or waits for one. `file` is the queue's lock file; its folder must exist.
  // Returns nothing at once if the queue is full, or when the time is over. Several queues in one
  // file begin at different bytes; each needs `places` + `line`.
  static std::optional<Place> Take(const std::string& file, const Queue& queue, int64_t first = 0);

 private:
  Place(UniqueFd file, int64_t byte) : file_(std::move(file)), byte_(byte) {}

  UniqueFd file_;
  int64_t byte_;
};

}  // namespace orvo
