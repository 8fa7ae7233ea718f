// The stream that a copy writes: libavformat's multiplexer.
#pragma once

#include <cstdint>
#include <functional>
#include <string_view>
#include <vector>

#include "transcoder/av_functions.h"
#include "transcoder/film_copy.h"

namespace orvo::transcoder {

class CopyOutput {
 public:
  // Takes the stream's next bytes. False when nobody wants more.
  using Sink = std::function<bool(std::string_view bytes)>;

  // The format outlives the object.
  CopyOutput(Sink sink, const CopyFormat& format);
  ~CopyOutput();
  CopyOutput(const CopyOutput&) = delete;
  CopyOutput& operator=(const CopyOutput&) = delete;

  // The film's own words, such as its title.
  void Describe(const AVDictionary* film);

  // Adds a track like one of the film's, in other words `codec`. Returns its number, or -1.
  int AddTrack(const AVStream& model, const AVCodecParameters& codec);

  // After all tracks. False on failure; nothing was written then.
  bool Begin();

  // Takes what the packet holds, in ticks of `clock`. Times that no multiplexer would take are
  // moved. False on failure.
  bool Write(int track, AVPacket& packet, AVRational clock);

  // False on failure.
  bool Finish();

  // Up to where the stream goes, in microseconds.
  int64_t Position() const { return position_; }
  int64_t Pictures() const { return pictures_; }

 private:
  static int WriteBytes(void* self, uint8_t* bytes, int size);
  bool CopySideData(const AVStream& model, AVStream& track) const;
  void Grow(AVPacket& packet, int64_t& last) const;

  const AvFunctions& av_;
  const CopyFormat& format_;
  Sink sink_;
  AVIOContext* io_ = nullptr;
  AVFormatContext* context_ = nullptr;
  std::vector<int64_t> last_;  // of each track, in its ticks
  int64_t position_ = 0;
  int64_t pictures_ = 0;
};

}  // namespace orvo::transcoder
