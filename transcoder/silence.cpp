#include "transcoder/silence.h"

#include <ctime>

namespace orvo::transcoder {
namespace {

// A fiftieth of a tick. A process that hangs uses less, one of forty on two processors more.
constexpr int64_t kAtWork = int64_t{Silence::kTick} * 1'000'000 / 50;
constexpr int kTickAtWork = Silence::kTick / 3;
constexpr int64_t kSecond = 1'000'000'000;

}  // namespace

bool Silence::Tick() {
  const int64_t used = Used();
  silent_ += used - used_ >= kAtWork ? kTickAtWork : kTick;
  used_ = used;
  return silent_ >= limit_;
}

void Silence::Break() {
  silent_ = 0;
}

int64_t Silence::Used() const {
  clockid_t clock{};
  timespec time{};
  const bool isKnown = clock_getcpuclockid(pid_, &clock) == 0 && clock_gettime(clock, &time) == 0;
  return isKnown ? time.tv_sec * kSecond + time.tv_nsec : 0;
}

}  // namespace orvo::transcoder
