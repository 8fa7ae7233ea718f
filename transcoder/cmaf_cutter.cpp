#include "transcoder/cmaf_cutter.h"

#include <algorithm>
#include <utility>

namespace orvo::transcoder {
namespace {

// Of so many pictures that follow each other in the stream, the first ones shown are known.
constexpr size_t kReordered = 16;
constexpr uint32_t kShortChunks = 2;
constexpr uint32_t kMostChunks = 1000;  // of a segment, for the numbers of chunks

}  // namespace

// --- Chunks ---

CmafChunks::CmafChunks(const CmafTrack& track, int64_t delay, CmafSink& sink)
    : track_(track), delay_(delay), sink_(sink) {}

void CmafChunks::Begin(int number, int64_t start) {
  number_ = number;
  start_ = start;
  count_ = 0;
  length_ = 0;
  sink_.Begin(number);
}

int64_t CmafChunks::Limit() const {
  const int64_t second = track_.clock;
  return count_ < kShortChunks ? second * 3 / 20 : second / 2;
}

void CmafChunks::Add(CmafSample sample) {
  if (!samples_.empty() && length_ + sample.duration > Limit()) {
    Flush();
  }
  length_ += sample.duration;
  samples_.push_back(std::move(sample));
}

void CmafChunks::End() {
  if (!samples_.empty() || count_ == 0) {
    Flush();
  }
  sink_.End();
}

void CmafChunks::Flush() {
  const auto sequence = static_cast<uint32_t>(number_) * kMostChunks + count_ + 1;
  sink_.Write(CmafChunk(track_, samples_, delay_, sequence, start_));
  samples_.clear();
  start_ += length_;
  length_ = 0;
  ++count_;
}

// --- Pictures ---

CmafPictureCutter::CmafPictureCutter(const CmafTrack& track, const CmafPlan& plan, int first,
                                     bool reorders, CmafSink& sink)
    : plan_(plan),
      first_(first),
      lookAhead_(reorders ? kReordered : 0),
      chunks_(track, plan.delay, sink) {}

void CmafPictureCutter::Take(CmafSample frame) {
  const int number = plan_.At(frame.time + plan_.Frame() / 2);
  if (isSated_) {
    return;
  }
  if (frame.isKey && number > number_ && number >= first_) {
    End();
    Begin(number);
    frame.time = plan_.Start(number);
  }
  if (number_ < 0 || frame.time < plan_.Start(number_)) {
    return;
  }
  if (frame.time >= plan_.cuts.back()) {
    Finish();
    return;
  }
  frame.time = std::min(frame.time, plan_.End(number_) - 1);
  times_.push(frame.time);
  waiting_.push_back(std::move(frame));
  PassOn(false);
}

void CmafPictureCutter::Begin(int number) {
  number_ = number;
  chunks_.Begin(number, plan_.Start(number));
}

void CmafPictureCutter::End() {
  if (number_ >= 0) {
    PassOn(true);
    chunks_.End();
  }
}

void CmafPictureCutter::Finish() {
  if (number_ >= 0) {
    End();
    isSated_ = true;
    number_ = -1;
  }
}

// A picture is decoded when the one is shown that has its place in the order of showing.
void CmafPictureCutter::PassOn(bool all) {
  while (times_.size() > (all ? 0 : lookAhead_ + 1)) {
    CmafSample frame = std::move(waiting_.front());
    waiting_.pop_front();
    frame.decodeTime = times_.top();
    times_.pop();
    frame.duration = (times_.empty() ? plan_.End(number_) : times_.top()) - frame.decodeTime;
    chunks_.Add(std::move(frame));
  }
}

// --- Sound ---

CmafSoundCutter::CmafSoundCutter(const CmafTrack& track, const CmafPlan& plan, int first,
                                 CmafSink& sink)
    : plan_(plan), first_(first), clock_(track.clock), chunks_(track, 0, sink), number_(first) {}

int64_t CmafSoundCutter::ToTrack(int64_t ticks) const {
  return ticks * clock_ / kPlanClock;
}

void CmafSoundCutter::Reach(int number, int64_t start) {
  if (!hasBegun_) {
    hasBegun_ = true;
    chunks_.Begin(number_, number_ == number ? start : ToTrack(plan_.Start(number_)));
  }
  while (number_ < number) {
    chunks_.End();
    ++number_;
    chunks_.Begin(number_, number_ == number ? start : ToTrack(plan_.Start(number_)));
  }
}

void CmafSoundCutter::Take(CmafSample frame) {
  const int64_t middle = (frame.time + frame.duration / 2) * kPlanClock / clock_;
  const int number = plan_.At(middle);
  if (isSated_ || frame.time < 0 || number < first_ || number < number_) {
    return;
  }
  if (middle >= plan_.cuts.back()) {
    Finish();
    return;
  }
  Reach(number, frame.time);
  frame.decodeTime = frame.time;
  chunks_.Add(std::move(frame));
}

void CmafSoundCutter::Finish() {
  if (isSated_) {
    return;
  }
  const int last = plan_.Count() - 1;
  Reach(last, ToTrack(plan_.Start(last)));
  chunks_.End();
  isSated_ = true;
}

}  // namespace orvo::transcoder
