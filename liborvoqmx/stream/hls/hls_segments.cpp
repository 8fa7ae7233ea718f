#include "stream/hls/hls_segments.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <ctime>
#include <utility>

#include "platform/plat.h"
#include "state/stream_lock.h"
#include "state/stream_watch.h"
#include "util/number.h"
#include "util/qmxutils.h"

namespace LibOrvoQMX {
namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

// A request waits for a transcoder that is at most this many segments behind.
constexpr int kReach = 4;
// A restart records its monitor within this time. Before that, it waits up to five seconds for the
// old one.
constexpr int64_t kRecordSeconds = 10;

// Does a run from segment `start` on make this segment soon?
bool IsWithinReach(int64_t start, int number) {
  return start <= number && number <= start + kReach;
}

}  // namespace

Segment::Segment(int segmentNumber) : number(segmentNumber), text(std::to_string(segmentNumber)) {}

Segment::Segment(const std::string& segmentText)
    : number(LeadingInt(segmentText)), text(segmentText), isNumber(BeginsWithInt(segmentText)) {}

namespace {

// The caller holds the file's lock. Without it, two requests could read the clock in one order and
// write in the other. Both would then be the latest.
std::string WriteNow(const StateFile& file) {
  timespec now{};
  if (clock_gettime(CLOCK_MONOTONIC, &now) != 0) {
    return "";
  }
  char text[48];
  snprintf(text, sizeof(text), "%lld.%09ld", static_cast<long long>(now.tv_sec), now.tv_nsec);
  file.Write(std::string(text));
  return text;
}

}  // namespace

std::string WriteSequence(const StreamDirectory& directory) {
  const StateFile file = directory.RequestSequence();
  const StreamLock lock = file.Lock();
  return WriteNow(file);
}

std::string WriteSequenceAfter(const StreamDirectory& directory, const std::string& seen) {
  const StateFile file = directory.RequestSequence();
  const StreamLock lock = file.Lock();
  return file.Read() == seen ? WriteNow(file) : "";
}

bool IsLatestSequence(const StreamDirectory& directory, const std::string& own) {
  return own.empty() || own >= directory.RequestSequence().Read();
}

HlsSegments::HlsSegments(StreamDirectory directory) : directory_(std::move(directory)) {}

bool HlsSegments::Has(int number) const {
  return VerifyFileExist(directory_.SegmentPath(number), 0);
}

bool HlsSegments::IsComplete(int number) const {
  // This check comes first. A transcoder that ends before the next check has completed its
  // segments.
  const bool isRunning = directory_.IsMonitored();
  if (!Has(number)) {
    return false;
  }
  return !isRunning || Has(number + 1);
}

bool HlsSegments::IsElsewhere(int number) const {
  const auto start = directory_.SeekTime().Number();
  return start && !IsWithinReach(*start, number);
}

bool HlsSegments::NeedsRestart(const Segment& segment) const {
  const auto start = directory_.SeekTime().Number();
  if (start && IsWithinReach(*start, segment.number)) {
    return false;
  }
  if (Has(segment.number)) {
    return false;
  }
  return !directory_.IsMonitored() || !Has(std::max(segment.number - kReach, 0));
}

bool HlsSegments::IsLeft(const Segment& segment) const {
  const int64_t asked = directory_.LastAskedFor();
  const bool isSamePlace =
      asked < 0 || (asked >= segment.number && asked - segment.number <= kReach);
  return !isSamePlace && NeedsRestart(segment);
}

// Is no process left that could produce another segment? That is so if the latest restart has
// recorded its monitor and the monitor has ended.
bool HlsSegments::IsPipelineOver() const {
  if (!directory_.IsMonitorOfLatestRestart()) {
    return false;
  }
  // The pid is read after the check of its age, so it is the latest monitor's. It is empty while it
  // is being written.
  const auto monitor = directory_.Monitor();
  return monitor && !PlatProcAlive(*monitor);
}

bool HlsSegments::IsFinished() const {
  const bool isIdle =
      directory_.RequestSequence().Read().empty() || IsPipelineOver() || IsRestartLost();
  const int64_t next =
      std::max(directory_.LastAskedFor() + 1, directory_.SeekTime().Number().value_or(0));
  return isIdle && !Has(static_cast<int>(next)) && !SegmentHold::IsHeld(directory_.Path());
}

bool HlsSegments::IsRestartLost() const {
  const auto asked = directory_.RequestSequence().Number();  // seconds of the monotonic clock
  timespec now{};
  if (!asked || directory_.IsMonitored() || clock_gettime(CLOCK_MONOTONIC, &now) != 0) {
    return false;
  }
  // The clock restarts when the machine boots.
  const int64_t age = now.tv_sec - *asked;
  return age < 0 || age > kRecordSeconds;
}

// Is the segment whole? A newer request may have stopped its transcoder halfway. It is whole if the
// next segment exists or the newer request's own transcoder has ended. The sequence is checked
// last, because a restart writes it before it stops anything.
bool HlsSegments::IsWhole(int number, const std::string& seen) const {
  return IsComplete(number) &&
         (directory_.RequestSequence().TryRead() == seen || Has(number + 1) || IsPipelineOver());
}

AwaitedSegment HlsSegments::Await(int number, const std::function<bool()>& isReplaced,
                                  const std::string& seen) const {
  // A complete segment needs no watch.
  if (IsWhole(number, seen)) {
    return {directory_.SegmentPath(number)};
  }
  const Clock::time_point end = Clock::now() + kFragmentTimeout;
  const Clock::time_point lost = Clock::now() + std::chrono::seconds(kRecordSeconds);
  const StreamWatch watch(directory_.Path());
  Clock::time_point lastRunning = Clock::now();
  for (;;) {
    const orvo::UniqueFd monitor = OpenRunningProcess(directory_.Monitor().value_or(-1));
    const bool isOvertaken = isReplaced();
    if (!IsPipelineOver()) {
      lastRunning = Clock::now();
    }
    const bool isOver =
        Clock::now() - lastRunning >= kSettled || (Clock::now() >= lost && IsRestartLost());
    if (IsWhole(number, seen)) {
      return {directory_.SegmentPath(number)};
    }
    const auto left = std::chrono::ceil<milliseconds>(end - Clock::now());
    if (isOvertaken || isOver || left.count() <= 0 || !directory_.Exists()) {
      return {"", isOver && !isOvertaken && directory_.Exists(), isOvertaken};
    }
    watch.Wait(monitor, static_cast<int>(std::min(left, kLookAgain).count()));
  }
}

}  // namespace LibOrvoQMX
