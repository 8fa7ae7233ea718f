// Cuts the frames of one rendition into the segments of the plan, and these into chunks.
#pragma once

#include <cstdint>
#include <deque>
#include <functional>
#include <queue>
#include <string>
#include <vector>

#include "contract/cmaf.h"
#include "transcoder/cmaf_boxes.h"

namespace orvo::transcoder {

// Where segments go. Each one begins, gets its chunks and ends.
class CmafSink {
 public:
  virtual ~CmafSink() = default;
  virtual void Begin(int number) = 0;
  virtual void Write(const std::string& chunk) = 0;
  virtual void End() = 0;
};

// Collects samples and writes them as chunks: short ones at the beginning of a segment, so that a
// player has a picture soon, then half a second.
class CmafChunks {
 public:
  CmafChunks(const CmafTrack& track, int64_t delay, CmafSink& sink);

  // `start` is where the segment begins, on the track's clock.
  void Begin(int number, int64_t start);
  void Add(CmafSample sample);
  // Writes what is left; an empty chunk if the segment has no sample.
  void End();

 private:
  void Flush();
  int64_t Limit() const;

  const CmafTrack& track_;
  int64_t delay_;
  CmafSink& sink_;
  uint32_t count_ = 0;  // of the segment's chunks
  int number_ = 0;
  int64_t start_ = 0;
  int64_t length_ = 0;
  std::vector<CmafSample> samples_;
};

// A cutter takes frames in the order of their decoding, on the film's clock in ticks of the track.
class CmafCutter {
 public:
  virtual ~CmafCutter() = default;
  virtual void Take(CmafSample frame) = 0;
  // There are no more frames.
  virtual void Finish() = 0;
  // Has everything been written that the plan has?
  bool IsSated() const { return isSated_; }

 protected:
  bool isSated_ = false;
};

// Segments of pictures begin with a key frame that is no more than half a picture away from the
// plan's cut, and cover their span exactly. Pictures that come after that key frame and are shown
// before it are left out, because they need the segment before.
class CmafPictureCutter : public CmafCutter {
 public:
  // `reorders` tells that pictures are not shown in the order of their decoding.
  CmafPictureCutter(const CmafTrack& track, const CmafPlan& plan, int first, bool reorders,
                    CmafSink& sink);
  void Take(CmafSample frame) override;
  void Finish() override;

 private:
  void Begin(int number);
  void End();
  // Passes on the pictures whose decode times are known. `all` if no more come.
  void PassOn(bool all);

  const CmafPlan& plan_;
  int first_;
  size_t lookAhead_;
  CmafChunks chunks_;
  int number_ = -1;  // the segment; -1 before the first
  std::deque<CmafSample> waiting_;
  std::priority_queue<int64_t, std::vector<int64_t>, std::greater<>> times_;
};

// A frame of sound belongs to the segment that its middle lies in.
class CmafSoundCutter : public CmafCutter {
 public:
  CmafSoundCutter(const CmafTrack& track, const CmafPlan& plan, int first, CmafSink& sink);
  void Take(CmafSample frame) override;
  // Sound that ends before the film leaves empty segments.
  void Finish() override;

 private:
  int64_t ToTrack(int64_t ticks) const;
  // Ends the segment, and all between it and `number`, and begins that one.
  void Reach(int number, int64_t start);

  const CmafPlan& plan_;
  int first_;
  int64_t clock_;
  CmafChunks chunks_;
  int number_;
  bool hasBegun_ = false;
};

}  // namespace orvo::transcoder
