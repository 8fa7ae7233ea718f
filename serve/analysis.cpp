#include "serve/analysis.h"

#include <algorithm>
#include <csignal>
#include <iostream>
#include <utility>

#include "platform/process_launch.h"

namespace serve {
namespace {

using std::chrono::seconds;

constexpr seconds kShortestPause{1};
constexpr seconds kLongestPause{300};
// If the analysis ran for this time, its end was not a failed start.
constexpr seconds kLongLife{600};
constexpr int kStopMilliseconds = 1000;

}  // namespace

Analysis::Analysis(std::string program, std::vector<std::string> roots, bool findsKeyframes)
    : program_(std::move(program)), roots_(std::move(roots)), findsKeyframes_(findsKeyframes) {}

Analysis::~Analysis() {
  Stop();
}

void Analysis::Update() {
  if (process_ && process_.HasEndedWithin(0)) {
    NoticeEnd();
  }
  if (!process_ && !roots_.empty() && Clock::now() >= next_) {
    Start();
  }
}

void Analysis::Start() {
  orvo::Program program{program_, {program_, findsKeyframes_ ? "--watch" : "--catalog"}};
  program.arguments.insert(program.arguments.end(), roots_.begin(), roots_.end());
  orvo::LaunchOptions options;
  options.streams = orvo::StandardStreams::kKept;
  options.parentDeath.signal = SIGKILL;  // the results on disk stay whole
  started_ = Clock::now();
  process_ = orvo::Start(program, options);
  if (!process_) {
    NoticeEnd();
  }
}

void Analysis::NoticeEnd() {
  process_ = orvo::Process();
  const bool wasLong = Clock::now() - started_ >= kLongLife;
  pause_ = wasLong ? kShortestPause : std::clamp(pause_ * 2, kShortestPause, kLongestPause);
  next_ = Clock::now() + pause_;
  std::cerr << "the analysis of the library has ended; it starts again in " << pause_.count()
            << " s\n";
}

int Analysis::Patience() const {
  if (process_ || roots_.empty()) {
    return -1;
  }
  const auto left = std::chrono::ceil<std::chrono::milliseconds>(next_ - Clock::now());
  return static_cast<int>(std::max<long>(left.count(), 0));
}

void Analysis::Stop() {
  roots_.clear();
  process_.End(SIGTERM, kStopMilliseconds);
  process_ = orvo::Process();
}

}  // namespace serve
