// A film taken apart by libavformat: its tracks, and their packets with times that can be relied
// on.
//
// It runs where its caller does. A caller that reads films of strangers confines itself first
// (Confinement, Job::kTranscoder). It reads the descriptor that it was given and opens nothing.
#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <memory>
#include <optional>
#include <vector>

#include "platform/unique_fd.h"
#include "transcoder/film_input.h"
#include "transcoder/film_times.h"

namespace orvo::transcoder {

// A packet whose times count from the film's start, in ticks of its track. Both are there.
struct FilmPacket {
  AvPacket packet;
  bool isIdr = false;  // a key frame, and nothing that is stored after it is shown before it

  int Track() const { return packet->stream_index; }
  bool IsKey() const { return (packet->flags & AV_PKT_FLAG_KEY) != 0; }
};

class FilmPackets {
 public:
  // Takes the film. Null when it is no film, or when libavformat is missing, which is in the log.
  static std::unique_ptr<FilmPackets> Open(UniqueFd film, Detail detail = Detail::kStated);

  // Tracks have FFmpeg's numbers: those of "-map 0:N".
  int TrackCount() const { return trackCount_; }
  const AVStream& Track(int number) const { return input_->Track(number); }
  const AVFormatContext& Format() const { return input_->Get(); }

  // The first track of this type that is no cover. -1 when there is none.
  int FirstOf(AVMediaType type) const;

  // The container's time where the film starts, in microseconds; FFmpeg's "start_time".
  int64_t FilmStart() const { return filmStart_; }

  // The only track of this type that is no cover or, with a number of 0 or more, the track with
  // this number. Nothing when there is none or, without a number, more than one.
  std::optional<int> Find(AVMediaType type, int number) const;

  // The container is one that states the times of all packets and can be entered at any key frame:
  // MP4 or Matroska. In others clocks may jump, which is not repaired.
  bool StatesTimes() const { return input_->IsMatroska() || input_->IsMp4(); }

  // The packets of other tracks are left out from here on. All tracks are chosen at first.
  void Choose(const std::vector<int>& tracks);

  // Goes to the last key frame of the track that is shown at or before this time, in seconds from
  // the film's start, or to its first one. A film that is not entered so begins with its first
  // packet. False when the film cannot be entered there.
  bool Seek(int track, double seconds);

  // Packets of one track come as they are stored; tracks are interleaved as they are stored, but
  // for a few packets. Nothing at the film's end and where it cannot be read on.
  std::optional<FilmPacket> Next();

 private:
  // What is known of a track.
  struct TrackState {
    bool isChosen = true;
    bool needsTimes = false;  // its decoding times are worked out here
    size_t reordered = 0;     // pictures that may be stored ahead of one shown before them
    bool isReorderKnown = false;
    int nalLength = 0;  // bytes before each unit of a packet; 0 for start codes
    DecodingTimes times{0};
    bool hasBegun = false;
    std::vector<FilmPacket> held;  // until there are enough to tell their decoding times
    int64_t last = AV_NOPTS_VALUE;
  };

  explicit FilmPackets(std::unique_ptr<FilmInput> input);
  TrackState StateOf(const AVStream& track) const;
  void FindStart();
  bool LacksAny(const std::vector<std::optional<int64_t>>& starts) const;
  std::optional<int64_t> StartOf(const AVPacket& packet) const;
  bool SeekTo(int track, int64_t time);
  std::optional<int64_t> FirstTimeOf(int track);

  AvPacket Read();
  AvPacket ReadChosen();
  void Take(AvPacket packet);
  void CountFromStart(AVPacket& packet) const;
  bool IsIdr(const AVPacket& packet) const;
  void Hold(TrackState& state, FilmPacket packet);
  void Release(TrackState& state);
  void Pass(TrackState& state, FilmPacket packet);

  std::unique_ptr<FilmInput> input_;
  const AvFunctions& av_;
  int trackCount_;
  int64_t filmStart_ = 0;
  std::vector<TrackState> tracks_;
  std::deque<AvPacket> seen_;  // read to learn something; still to be taken
  std::deque<FilmPacket> ready_;
  bool hasEnded_ = false;
};

}  // namespace orvo::transcoder
