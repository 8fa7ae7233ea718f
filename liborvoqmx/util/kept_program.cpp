#include "util/kept_program.h"

#include <algorithm>
#include <csignal>
#include <iostream>
#include <utility>

#include "platform/process_launch.h"

namespace orvo {
namespace {

using std::chrono::seconds;

constexpr seconds kShortestPause{1};
constexpr seconds kLongestPause{300};
// If the program ran for this time, its end was not a failed start.
constexpr seconds kLongLife{600};
constexpr int kStopMilliseconds = 1000;

}  // namespace

KeptProgram::KeptProgram(std::string name, std::vector<std::string> command)
    : name_(std::move(name)), command_(std::move(command)) {}

KeptProgram::~KeptProgram() {
  Stop();
}

void KeptProgram::Update() {
  if (process_ && process_.HasEndedWithin(0)) {
    NoticeEnd();
  }
  if (!process_ && !command_.empty() && Clock::now() >= next_) {
    Start();
  }
}

void KeptProgram::Start() {
  LaunchOptions options;
  options.streams = StandardStreams::kKept;
  options.parentDeath.signal = SIGKILL;  // what it keeps on disk stays whole
  started_ = Clock::now();
  process_ = orvo::Start({command_.front(), command_}, options);
  if (!process_) {
    NoticeEnd();
  }
}

void KeptProgram::NoticeEnd() {
  process_ = Process();
  const bool wasLong = Clock::now() - started_ >= kLongLife;
  pause_ = wasLong ? kShortestPause : std::clamp(pause_ * 2, kShortestPause, kLongestPause);
  next_ = Clock::now() + pause_;
  std::cerr << name_ << " has ended; it starts again in " << pause_.count() << " s\n";
}

void KeptProgram::Change(std::vector<std::string> command) {
  Stop();
  command_ = std::move(command);
  next_ = Clock::now();
}

int KeptProgram::Patience() const {
  if (process_ || command_.empty()) {
    return -1;
  }
  const auto left = std::chrono::ceil<std::chrono::milliseconds>(next_ - Clock::now());
  return static_cast<int>(std::max<long>(left.count(), 0));
}

void KeptProgram::Stop() {
  command_.clear();
  process_.End(SIGTERM, kStopMilliseconds);
  process_ = Process();
}

}  // namespace orvo
