#include "transcoder/fragment_cutter.h"

#include <algorithm>
#include <utility>

namespace orvo::transcoder {
namespace {

// Times of pictures are rounded on their way, to ticks of 1/90000 s and more than once.
constexpr int64_t kRounding = kFragmentClockRate / 20000;

// FFmpeg lets one stream run ahead of another by ten seconds before it stops waiting for it.
constexpr int64_t kPatience = 12 * kFragmentClockRate;

// Pictures that are decoded only because the one behind them is shown.
constexpr int64_t kUnseen = kFragmentClockRate / 100000;

// A frame of silence, as every AAC encoder writes it for two channels.
const std::shared_ptr<const std::string>& Silence() {
  static const auto frame = std::make_shared<const std::string>("\x21\x10\x04\x60\x8c\x1c", 6);
  return frame;
}

int64_t TimeOfFrame(int64_t frame) {
  return frame * kFragmentSoundFrame * kFragmentClockRate / kFragmentSoundRate;
}

int64_t FrameAt(int64_t time) {
  constexpr int64_t kScale = kFragmentSoundFrame * kFragmentClockRate;
  return (time * kFragmentSoundRate + kScale / 2) / kScale;
}

}  // namespace

// --- Pictures ---

PictureCutter::PictureCutter(const FragmentPlan& plan, FragmentSink& sink)
    : sink_(sink),
      length_(plan.length),
      firstNumber_(plan.firstNumber),
      number_(plan.firstNumber) {}

int64_t PictureCutter::End() const {
  const size_t count = samples_.size();
  if (count == 0) {
    return 0;
  }
  const int64_t step = count > 1 ? samples_[count - 1].time - samples_[count - 2].time : 1;
  return samples_.back().time + step;
}

void PictureCutter::Take(Sample sample) {
  const auto number = static_cast<int>((sample.time + kRounding) / length_);
  if (samples_.empty()) {
    if (number < firstNumber_) {
      Remember(std::move(sample));
    } else if (sample.isKey) {
      Open(std::move(sample), number);
    }
    return;
  }
  broken_ |= sample.time <= samples_.back().time;
  broken_ &= !sample.isKey;
  if (sample.isKey && number > number_) {
    HoldUntil(Boundary(number - 1));
    Close(sample.time);
    samples_ = {std::move(sample)};
  } else if (!broken_ && sample.time > samples_.back().time) {
    samples_.push_back(std::move(sample));
  }
}

void PictureCutter::Remember(Sample sample) {
  if (sample.isKey) {
    before_.clear();
  }
  if (sample.isKey || !before_.empty()) {
    before_.push_back(std::move(sample));
  }
}

// Before the first picture of all that picture stands.
void PictureCutter::Open(Sample first, int number) {
  const int64_t time = first.time;
  const bool isLate = number > number_ || number == 0;
  first.time = isLate ? Boundary(number_) : time;
  samples_ = {std::move(first)};
  if (number > number_) {
    HoldUntil(Boundary(number - 1));
    Close(time);
    samples_.front().time = time;
  }
}

// The samples stay: the next fragment may have to show the last of them.
void PictureCutter::Close(int64_t end) {
  for (size_t i = 1; i < samples_.size(); ++i) {
    samples_[i - 1].duration = samples_[i].time - samples_[i - 1].time;
  }
  samples_.back().duration = std::max<int64_t>(1, end - samples_.back().time);
  sink_.Write(Track::kVideo, number_, samples_);
  ++number_;
}

void PictureCutter::HoldUntil(int64_t time) {
  while (!samples_.empty() && Boundary(number_ + 1) <= time) {
    Close(Boundary(number_ + 1));
    ShowLastFrom(Boundary(number_));
  }
}

void PictureCutter::ShowLastFrom(int64_t time) {
  for (Sample& sample : samples_) {
    sample.time = std::exchange(time, time + kUnseen);
  }
}

void PictureCutter::Finish(int64_t end) {
  if (samples_.empty()) {
    samples_ = std::move(before_);
    ShowLastFrom(Boundary(number_));
  }
  HoldUntil(end);
  if (!samples_.empty() && samples_.front().time < end) {
    Close(end);
  }
  samples_.clear();
}

// --- Sound ---

SoundCutter::SoundCutter(const FragmentPlan& plan, FragmentSink& sink)
    : sink_(sink),
      length_(plan.length),
      limit_(plan.film ? *plan.film * kFragmentClockRate : INT64_MAX),
      number_(plan.firstNumber) {
  next_ = FrameAt(number_ * length_);
  while (next_ > 0 && NumberOf(next_ - 1) >= number_) {
    --next_;
  }
  while (NumberOf(next_) < number_) {
    ++next_;
  }
}

int SoundCutter::NumberOf(int64_t frame) const {
  return static_cast<int>((TimeOfFrame(frame) + TimeOfFrame(frame + 1)) / 2 / length_);
}

int64_t SoundCutter::End() const {
  return TimeOfFrame(next_);
}

void SoundCutter::Take(const Sample& sample) {
  const int64_t frame = sample.time < 0 ? -1 : FrameAt(sample.time);
  while (next_ < frame) {
    Append(Silence());
  }
  if (frame == next_) {
    Append(sample.data);
  }
}

void SoundCutter::Append(std::shared_ptr<const std::string> data) {
  const int number = NumberOf(next_);
  const int64_t time = TimeOfFrame(next_);
  ++next_;
  if (number * length_ >= limit_) {
    return;
  }
  if (number > number_) {
    Close();
  }
  samples_.push_back({time, TimeOfFrame(next_) - time, true, std::move(data)});
}

void SoundCutter::Close() {
  sink_.Write(Track::kAudio, number_, samples_);
  samples_.clear();
  ++number_;
}

void SoundCutter::FillUntil(int64_t time) {
  while (End() < time) {
    Append(Silence());
  }
}

void SoundCutter::Finish(int64_t end) {
  limit_ = std::min(limit_, end);
  FillUntil(end);
  if (!samples_.empty()) {
    Close();
  }
}

// --- Both ---

FragmentCutter::FragmentCutter(const FragmentPlan& plan, FragmentSink& sink)
    : sink_(sink), soundDone_(plan.firstNumber), pictures_(plan, *this), sound_(plan, *this) {
  if (plan.film) {
    promised_ = *plan.film * kFragmentClockRate;
  }
}

void FragmentCutter::Take(Track track, const Sample& sample) {
  if (promised_ && sample.time + kRounding >= *promised_) {
    (track == Track::kVideo ? picturesSated_ : soundSated_) = true;
  } else if (track == Track::kVideo) {
    pictures_.Take(sample);
    sound_.FillUntil(hasSound_ ? sample.time - kPatience : sample.time);
  } else {
    sound_.Take(sample);
    pictures_.HoldUntil(sample.time - kPatience);
  }
}

void FragmentCutter::Finish() {
  if (!HasPicture()) {
    return;
  }
  const int64_t end = promised_.value_or(std::max(pictures_.End(), sound_.End()));
  sound_.Finish(end);
  pictures_.Finish(end);
}

void FragmentCutter::Write(Track track, int number, const std::vector<Sample>& samples) {
  if (track == Track::kVideo) {
    waiting_.emplace_back(number, samples);
  } else {
    sink_.Write(track, number, samples);
    soundDone_ = number + 1;
  }
  while (!waiting_.empty() && waiting_.front().first < soundDone_) {
    sink_.Write(Track::kVideo, waiting_.front().first, waiting_.front().second);
    waiting_.pop_front();
  }
}

}  // namespace orvo::transcoder
