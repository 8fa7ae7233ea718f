// Reads the packets of a film's video with FFmpeg's libraries.
#pragma once

extern "C" {
#include <libavformat/avformat.h>
}

#include <cstdint>
#include <memory>
#include <string>

namespace orvo::analyze {

struct CloseInput {
  void operator()(AVFormatContext* context) const { avformat_close_input(&context); }
};
struct FreePacket {
  void operator()(AVPacket* packet) const { av_packet_free(&packet); }
};

using Input = std::unique_ptr<AVFormatContext, CloseInput>;

// Opens a film. Null and the reason in `error` on failure.
Input OpenInput(const std::string& path, std::string& error);

// Is this a name of the film's demuxer?
bool IsFormat(const AVFormatContext& context, const char* name);

bool IsKeyframe(const AVPacket& packet);

// Reads a film's video packets once.
class VideoReader {
 public:
  // Returns false and the reason if the film has no moving video.
  bool Open(const std::string& path, std::string& error);

  // The next video packet; null at the end.
  const AVPacket* Next();

  // From now on the demuxer may skip all packets except key frames. In containers that list every
  // sample, this saves reading the rest. Packets still carry presentation times, which the list
  // lacks.
  void SkipToKeyframes() { video_->discard = AVDISCARD_NONKEY; }

  // Seeks to the key frame at or before a time. Packets of all kinds follow.
  bool Seek(int64_t time);

  static int64_t Time(const AVPacket& packet) {
    return packet.pts != AV_NOPTS_VALUE ? packet.pts : packet.dts;
  }
  int64_t EndOf(const AVPacket& packet) const;
  double Seconds(int64_t time) const {
    return static_cast<double>(time) * av_q2d(video_->time_base);
  }
  int64_t TimeAt(double second) const {
    return static_cast<int64_t>(second / av_q2d(video_->time_base));
  }

  int Track() const { return video_->index; }
  const AVStream& Video() const { return *video_; }
  const AVFormatContext& Film() const { return *context_; }
  // Does the container list every sample?
  bool ListsSamples() const { return IsFormat(*context_, "mov"); }
  double Position() const;

 private:
  bool ChooseVideo();

  Input context_;
  std::unique_ptr<AVPacket, FreePacket> packet_{av_packet_alloc()};
  AVStream* video_ = nullptr;  // the context owns it
};

}  // namespace orvo::analyze
