// A time limit for calls that have none of their own, such as a wait for a lock.
#pragma once

#include <csignal>
#include <ctime>

#include "platform/export.h"

namespace orvo {

// From `milliseconds` after its start until its end, the blocking calls of this thread fail with
// EINTR, again and again. Uses the signal SIGRTMIN, whose action it restores. A thread has one such
// object at a time.
class ORVO_API Interruption {
 public:
  explicit Interruption(int milliseconds);
  ~Interruption();
  Interruption(const Interruption&) = delete;
  Interruption& operator=(const Interruption&) = delete;

  // Is the time over? Also true if the system has no timer for it.
  bool IsDue() const;

 private:
  timespec end_{};
  timer_t timer_{};
  bool hasTimer_;
  struct sigaction before_ {};
};

}  // namespace orvo
