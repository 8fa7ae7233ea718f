// Cuts one transport stream into segments that fit together with those of every other run over the
// same film.
//
// A segment is what stands in the stream from its first picture's first packet up to that of the
// next segment's. The multiplexer orders frames by their times alone, so two runs that agree on the
// times agree on every segment, wherever they started: a run is entered somewhat early and what
// stands before its first segment is dropped.
#pragma once

#include <array>
#include <bitset>
#include <cstdint>
#include <optional>
#include <string>

#include "transcoder/transport_stream.h"

namespace orvo::transcoder {

enum class Cuts {
  kForced,     // at the key frames that the encoder puts at each multiple of the length
  kAnywhere,   // at the first picture at or after each multiple of the length
  kKeyFrames,  // the same at key frames, counted from the film's first one: one segment a cut
};

struct SegmentPlan {
  std::string pattern;  // the files' path, with one "%d" or "%05d" for the number
  int firstNumber = 0;
  double length = 0;  // seconds
  double start = 0;   // where the first segment starts in the film, in seconds
  Cuts cuts = Cuts::kForced;
  bool startsAtOnce = false;        // nothing stands before the first segment
  std::optional<int64_t> firstKey;  // where the film's first key frame is, in ticks, once known
};

// Where segments go.
class SegmentSink {
 public:
  virtual ~SegmentSink() = default;
  virtual void Begin(int number) = 0;  // whatever was begun before is complete
  virtual void Append(const Packet& packet) = 0;
};

// How much later the multiplexer makes everything.
inline constexpr int64_t kMultiplexerDelay = kTransportClockRate * 14 / 10;

class SegmentCutter {
 public:
  SegmentCutter(const SegmentPlan& plan, SegmentSink& sink);

  void Take(const Packet& packet);

  // The segment that is being written; one below the first before there is any.
  int Number() const { return number_; }
  bool HasBegun() const { return begun_; }

  // Where the film's first key frame is, from the run that starts the film. Only cuts at key frames
  // ask for it.
  std::optional<int64_t> FirstKey() const;

 private:
  void Look(const Frame& frame);
  void LookAtFirstPicture(int64_t time);
  void LookAtStart(const Frame& frame, int64_t time);
  void LookAtPicture(const Frame& frame, int64_t time);
  void LookAtSound(int64_t time);
  int64_t FilmTime(int64_t pts);
  int64_t NextCut() const;
  int NumberAt(int64_t time) const;
  void GoTo(int number);
  void Begin(int number);
  void Write(Packet packet);

  SegmentSink& sink_;
  Cuts cuts_;
  bool startsAtOnce_;
  int64_t length_;
  int64_t start_;
  int64_t lastTime_;  // for telling the clock's turns apart
  bool knowsFirstKey_;
  int64_t firstKey_;  // in the film; what the cuts are counted from
  bool hasPicture_ = false;
  bool begun_ = false;
  int number_;
  Packet programs_{};  // the tables that every segment begins with
  Packet streams_{};
  std::array<unsigned char, kPids> counters_{};
  std::bitset<kPids> seen_;
};

}  // namespace orvo::transcoder
