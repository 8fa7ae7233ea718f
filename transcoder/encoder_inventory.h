// Which encoders this machine has.
#pragma once

#include <functional>
#include <string>
#include <string_view>

#include "transcoder/ffmpeg_listing.h"

namespace orvo::transcoder {

class EncoderInventory {
 public:
  // `executable`: the FFmpeg to ask. `cacheFile`: where its answer is kept. `nodeExists`: whether a
  // device node is there. Nothing is read or run before the first question.
  EncoderInventory(std::string executable, std::string cacheFile,
                   std::function<bool(const char* node)> nodeExists);

  // True when FFmpeg has the encoder and, for a hardware encoder, its device is there. An FFmpeg
  // that gives no answer has none.
  bool CanEncode(std::string_view encoder);

 private:
  FfmpegListing encoders_;
  std::function<bool(const char* node)> nodeExists_;
};

}  // namespace orvo::transcoder
