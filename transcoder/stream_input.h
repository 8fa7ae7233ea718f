// FFmpeg's stream between a child and this process, taken apart by libavformat.
//
// The stream is NUT. It is kStreamDelay later than the film, because NUT has no times before 0.
#pragma once

#include <functional>

#include "transcoder/av_functions.h"

namespace orvo::transcoder {

inline constexpr int kStreamDelay = 10;  // seconds

class StreamInput {
 public:
  // As read(2): the bytes that were read, 0 at the end and below 0 when the run is to end.
  using Source = std::function<int(unsigned char* buffer, int size)>;

  StreamInput(const AvFunctions& libraries, Source source);
  ~StreamInput();
  StreamInput(const StreamInput&) = delete;
  StreamInput& operator=(const StreamInput&) = delete;

  // Reads up to the first packet. False when there is none.
  bool Open();

  // Null if the stream has no such track.
  const AVStream* TrackOf(AVMediaType type) const;
  const AVStream& Track(int number) const { return *context_->streams[number]; }
  // What the stream says of the whole film.
  const AVDictionary* Words() const { return context_->metadata; }

  // The next whole packet, which stays until the next call. It has one time: that of showing it.
  // Null at the end.
  AVPacket* Next();

 private:
  static int ReadMore(void* self, uint8_t* buffer, int size);

  const AvFunctions& libraries_;
  Source source_;
  AVFormatContext* context_ = nullptr;
  AVIOContext* io_ = nullptr;
  AVPacket* packet_;
};

}  // namespace orvo::transcoder
