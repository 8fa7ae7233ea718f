#include "transcoder/segment_cutter.h"

#include <algorithm>
#include <cmath>

namespace orvo::transcoder {
namespace {

// Where FFmpeg's multiplexer puts its tables.
constexpr int kProgramsPid = 0;
constexpr int kServicesPid = 0x11;
constexpr int kStreamsPid = 0x1000;

// Start times come in milliseconds, rounded down, and so do the times of many films.
constexpr int64_t kTolerance = kTransportClockRate / 1000 * 3 / 2;

// Sound this far behind a cut without a picture: none will come before it any more. The film shows
// one picture for long, or its pictures have ended.
constexpr int64_t kPatience = kTransportClockRate / 2;

constexpr int64_t kClockTurn = INT64_C(1) << 33;

int64_t ToTicks(double seconds) {
  return std::llround(seconds * kTransportClockRate);
}

// The time nearest to `near` that the clock shows as `pts`.
int64_t Unwrap(int64_t pts, int64_t near) {
  const int64_t ahead = ((pts - near) % kClockTurn + kClockTurn) % kClockTurn;
  return near + (ahead >= kClockTurn / 2 ? ahead - kClockTurn : ahead);
}

}  // namespace

SegmentCutter::SegmentCutter(const SegmentPlan& plan, SegmentSink& sink)
    : sink_(sink),
      cuts_(plan.cuts),
      startsAtOnce_(plan.startsAtOnce),
      length_(std::max<int64_t>(1, ToTicks(plan.length))),
      start_(ToTicks(plan.start)),
      lastTime_(start_),
      knowsFirstKey_(cuts_ != Cuts::kKeyFrames || plan.firstKey.has_value()),
      firstKey_(cuts_ == Cuts::kKeyFrames ? plan.firstKey.value_or(0) : 0),
      number_(plan.firstNumber - 1) {}

void SegmentCutter::Take(const Packet& packet) {
  switch (Pid(packet)) {
    case kProgramsPid:
      programs_ = packet;
      break;
    case kStreamsPid:
      streams_ = packet;
      break;
    case kServicesPid:
      return;
    default:
      if (const auto frame = FrameStart(packet)) {
        Look(*frame);
      }
  }
  if (begun_) {
    Write(packet);
  }
}

void SegmentCutter::Look(const Frame& frame) {
  const int64_t time = FilmTime(frame.pts);
  if (!begun_) {
    LookAtStart(frame, time);
  } else if (frame.kind == Kind::kPicture) {
    LookAtPicture(frame, time);
  } else {
    LookAtSound(time);
  }
  if (begun_ && frame.kind == Kind::kPicture && !hasPicture_) {
    hasPicture_ = true;
    LookAtFirstPicture(time);
  }
}

// It is the first segment's key frame, so it tells where the film's first one is.
void SegmentCutter::LookAtFirstPicture(int64_t time) {
  if (!knowsFirstKey_) {
    knowsFirstKey_ = true;
    firstKey_ = std::max<int64_t>(0, time - start_);
  }
}

std::optional<int64_t> SegmentCutter::FirstKey() const {
  const bool seen = cuts_ == Cuts::kKeyFrames && startsAtOnce_ && hasPicture_;
  return seen ? std::optional(firstKey_) : std::nullopt;
}

void SegmentCutter::LookAtStart(const Frame& frame, int64_t time) {
  const bool isPicture = frame.kind == Kind::kPicture;
  const bool opens = cuts_ == Cuts::kAnywhere || frame.isKey;
  if (startsAtOnce_ || (isPicture && opens && time >= firstKey_ + start_ - kTolerance)) {
    GoTo(cuts_ == Cuts::kKeyFrames ? number_ + 1 : std::max(number_ + 1, NumberAt(time)));
  } else if (!isPicture && cuts_ != Cuts::kKeyFrames && time >= start_ + kPatience) {
    GoTo(number_ + 1);
  }
}

void SegmentCutter::LookAtPicture(const Frame& frame, int64_t time) {
  const bool opens = cuts_ == Cuts::kAnywhere || frame.isKey;
  const bool wanted = cuts_ != Cuts::kKeyFrames || hasPicture_;
  if (opens && wanted && time >= NextCut() - kTolerance) {
    GoTo(cuts_ == Cuts::kKeyFrames ? number_ + 1 : NumberAt(time));
  }
}

void SegmentCutter::LookAtSound(int64_t time) {
  if (cuts_ != Cuts::kKeyFrames && time >= NextCut() + kPatience) {
    GoTo(NumberAt(time));
  }
}

int64_t SegmentCutter::FilmTime(int64_t pts) {
  lastTime_ = Unwrap(pts - kMultiplexerDelay, lastTime_);
  return lastTime_;
}

int64_t SegmentCutter::NextCut() const {
  return firstKey_ + (number_ + 1) * length_;
}

int SegmentCutter::NumberAt(int64_t time) const {
  return static_cast<int>((time + kTolerance) / length_);
}

// A number without a frame gets its file all the same: someone may wait for it.
void SegmentCutter::GoTo(int number) {
  while (number_ < number) {
    Begin(number_ + 1);
  }
}

void SegmentCutter::Begin(int number) {
  begun_ = true;
  number_ = number;
  sink_.Begin(number);
  counters_.fill(0);
  seen_.reset();
  Write(programs_);
  Write(streams_);
}

// Counters start anew in every segment, so that a segment is the same in every run.
void SegmentCutter::Write(Packet packet) {
  const auto pid = static_cast<size_t>(Pid(packet));
  if (!seen_.test(pid)) {
    seen_.set(pid);
    AnnounceJump(packet);
  }
  SetCounter(packet, HasPayload(packet) ? counters_[pid]++ : counters_[pid] - 1);
  sink_.Append(packet);
}

}  // namespace orvo::transcoder
