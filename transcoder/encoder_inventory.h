// Which encoders this machine has.
#pragma once

#include <functional>
#include <string>
#include <string_view>

#include "transcoder/ffmpeg_listing.h"

namespace orvo::transcoder {

class EncoderInventory {
 public:
  // `executable`: the FFmpeg to ask. `cacheFile`: where its answer is kept. `isProved`: whether the
  // video engine of this encoder has encoded. Nothing is read or run before the first question.
  EncoderInventory(std::string executable, std::string cacheFile,
                   std::function<bool(std::string_view encoder)> isProved);

  // True when FFmpeg has the encoder and, for one of a video engine, the engine is proved. An
  // FFmpeg that gives no answer has none.
  bool CanEncode(std::string_view encoder);

 private:
  FfmpegListing encoders_;
  std::function<bool(std::string_view encoder)> isProved_;
};

}  // namespace orvo::transcoder
