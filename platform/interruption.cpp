#include "platform/interruption.h"

#include <unistd.h>

#include <algorithm>

namespace orvo {
namespace {

constexpr long kNanosecondsEach = 1000000;
constexpr long kNanosecondsPerSecond = 1000000000;
// A signal may arrive between a look at the time and the call. The next one then interrupts it.
constexpr timespec kAgain{0, 20 * kNanosecondsEach};

void DoNothing(int /*signal*/) {}

timespec In(int milliseconds) {
  return {milliseconds / 1000, milliseconds % 1000 * kNanosecondsEach};
}

timespec Sum(const timespec& one, const timespec& other) {
  const long nanoseconds = one.tv_nsec + other.tv_nsec;
  return {one.tv_sec + other.tv_sec + nanoseconds / kNanosecondsPerSecond,
          nanoseconds % kNanosecondsPerSecond};
}

timespec Now() {
  timespec now{};
  clock_gettime(CLOCK_MONOTONIC, &now);
  return now;
}

// A timer whose signals go to this thread.
bool MakeTimer(timer_t& timer) {
  sigevent event{};
  event.sigev_notify = SIGEV_THREAD_ID;
  event.sigev_signo = SIGRTMIN;
  event._sigev_un._tid = gettid();  // the C library has no public name for this member
  return timer_create(CLOCK_MONOTONIC, &event, &timer) == 0;
}

}  // namespace

Interruption::Interruption(int milliseconds) : end_(Sum(Now(), In(std::max(milliseconds, 1)))) {
  struct sigaction action {};
  action.sa_handler = DoNothing;
  sigaction(SIGRTMIN, &action, &before_);
  const itimerspec times{kAgain, In(std::max(milliseconds, 1))};
  hasTimer_ = MakeTimer(timer_) && timer_settime(timer_, 0, &times, nullptr) == 0;
}

Interruption::~Interruption() {
  if (hasTimer_) {
    timer_delete(timer_);
  }
  sigaction(SIGRTMIN, &before_, nullptr);
}

bool Interruption::IsDue() const {
  const timespec now = Now();
  return !hasTimer_ || now.tv_sec > end_.tv_sec ||
         (now.tv_sec == end_.tv_sec && now.tv_nsec >= end_.tv_nsec);
}

}  // namespace orvo
