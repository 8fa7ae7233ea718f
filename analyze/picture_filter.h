// FFmpeg's filters for single decoded pictures.
#pragma once

extern "C" {
#include <libavutil/frame.h>
}

#include <memory>
#include <string>

namespace orvo::analyze {

struct FreeFrame {
  void operator()(AVFrame* frame) const { av_frame_free(&frame); }
};
using Frame = std::unique_ptr<AVFrame, FreeFrame>;

// What a chain of filters makes of a picture. Null on failure.
Frame Filtered(const AVFrame& picture, const std::string& chain);

}  // namespace orvo::analyze
