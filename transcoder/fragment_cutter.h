// Cuts a picture and a sound stream into fragments that fit together with those of every other run
// over the same film.
//
// Fragment n holds what is shown and heard from n to n + 1 times the length: pictures from the key
// frame that the encoder puts there, frames of sound by their middle. Both streams are without
// gaps, and both reach the end that was promised: a picture stands until the next one comes, and
// missing sound is silence.
#pragma once

#include <cstdint>
#include <deque>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "transcoder/lengths.h"

namespace orvo::transcoder {

// The sound of fragments: AAC frames at 48 kHz, the same in every row of the manifests.
inline constexpr int kFragmentSoundRate = 48000;
inline constexpr int kFragmentSoundFrame = 1024;

// An encoded picture or frame of sound.
struct Sample {
  int64_t time = 0;  // in the film, in ticks
  int64_t duration = 0;
  bool isKey = false;
  std::shared_ptr<const std::string> data;
};

struct FragmentPlan {
  std::string folder;
  std::string videoRate;  // bits a second, in decimal: what the folders are named by
  std::string audioRate;
  int firstNumber = 0;
  int64_t length = FragmentTicks(kUsualLength);
  std::optional<int> film;  // what the film's fragments shall reach up to, in seconds, once known
  // Command lines for pictures alone, each from an earlier place in the film, the last from its
  // start: for a run that has none of its own.
  std::vector<std::vector<std::string>> searches;
};

// Where fragments go: in order for each track, and sound before the pictures of the same number.
class FragmentSink {
 public:
  virtual ~FragmentSink() = default;
  virtual void Write(Track track, int number, const std::vector<Sample>& samples) = 0;
};

// A run of samples that belong to one fragment and what is known of those before.
class PictureCutter {
 public:
  PictureCutter(const FragmentPlan& plan, FragmentSink& sink);

  void Take(Sample sample);

  // Whether there is a picture to show: one of the run's own or one that stands before its start.
  bool HasPicture() const { return !samples_.empty() || !before_.empty(); }

  // Makes the fragments that end before `time` complete: no picture will come for them.
  void HoldUntil(int64_t time);
  void Finish(int64_t end);

  int64_t End() const;  // of the newest picture; 0 before there is one

 private:
  void Remember(Sample sample);
  void Open(Sample first, int number);
  void Close(int64_t end);
  void ShowLastFrom(int64_t time);
  int64_t Boundary(int number) const { return number * length_; }

  FragmentSink& sink_;
  int64_t length_;
  int firstNumber_;
  int number_;
  bool broken_ = false;  // a picture is missing: the following ones need a key frame
  std::vector<Sample> samples_;
  std::vector<Sample> before_;  // the last picture before the run's start, from its key frame on
};

class SoundCutter {
 public:
  SoundCutter(const FragmentPlan& plan, FragmentSink& sink);

  void Take(const Sample& sample);
  void FillUntil(int64_t time);
  void Finish(int64_t end);

  int64_t End() const;

 private:
  void Append(std::shared_ptr<const std::string> data);
  void Close();
  int NumberOf(int64_t frame) const;

  FragmentSink& sink_;
  int64_t length_;
  int64_t limit_;  // no fragment starts there or later
  int number_;
  int64_t next_ = 0;  // frames of sound up to here, counted from the film's start
  std::vector<Sample> samples_;
};

class FragmentCutter : private FragmentSink {
 public:
  // `sink` outlives this. A film without sound is silent.
  FragmentCutter(const FragmentPlan& plan, FragmentSink& sink);

  void SetHasSound(bool hasSound) { hasSound_ = hasSound; }
  void Take(Track track, const Sample& sample);

  // The film is over: what was promised of it is made up for, and the last fragments are complete.
  // Without a picture there is nothing to make.
  void Finish();

  bool HasPicture() const { return pictures_.HasPicture(); }

  // Whether both streams are beyond what was promised: nothing more is needed.
  bool IsSated() const { return picturesSated_ && (soundSated_ || !hasSound_); }

 private:
  void Write(Track track, int number, const std::vector<Sample>& samples) override;

  FragmentSink& sink_;
  std::optional<int64_t> promised_;
  bool hasSound_ = true;
  bool picturesSated_ = false;
  bool soundSated_ = false;
  int soundDone_;  // fragments of sound up to here are complete
  std::deque<std::pair<int, std::vector<Sample>>> waiting_;  // pictures whose sound is not
  PictureCutter pictures_;
  SoundCutter sound_;
};

}  // namespace orvo::transcoder
