// A chain of FFmpeg's filters for decoded sound.
#pragma once

#include <memory>
#include <string>

#include "transcoder/av_functions.h"

extern "C" {
#include <libavfilter/avfilter.h>
#include <libavfilter/buffersink.h>
#include <libavfilter/buffersrc.h>
}

namespace orvo::transcoder {

struct FilterFunctions;

class SoundGraph {
 public:
  // Loads libavfilter. False when the machine lacks it.
  static bool IsAvailable();

  // A graph for sound like this frame's. Its output comes in frames of `frameSize` samples. Null
  // when the chain does not fit.
  static std::unique_ptr<SoundGraph> Open(const AVFrame& frame, const std::string& chain,
                                          int frameSize);
  ~SoundGraph();
  SoundGraph(const SoundGraph&) = delete;
  SoundGraph& operator=(const SoundGraph&) = delete;

  // The frame has the rate, the format and the channels that the graph was made for.
  bool Fits(const AVFrame& frame) const;

  // Takes what the frame holds; null is the end. False on failure.
  bool Put(AVFrame* frame);
  // The next frame of output, with its time in ticks of its rate. False when there is none yet.
  bool Get(AVFrame& frame);

 private:
  SoundGraph(const AvFunctions& av, const FilterFunctions& filters);
  bool Connect(const AVFrame& frame, const std::string& chain, int frameSize);

  const AvFunctions& av_;
  const FilterFunctions& filters_;
  AVFilterGraph* graph_ = nullptr;
  AVFilterContext* source_ = nullptr;
  AVFilterContext* sink_ = nullptr;
  int rate_ = 0;
  int format_ = -1;
  AVChannelLayout layout_{};
};

}  // namespace orvo::transcoder
