// Which encoders this machine has.
//
// FFmpeg itself is asked, once: its answer is kept in a small file that is good for as long as the
// executable's size and modification time stay the same.
#pragma once

#include <functional>
#include <set>
#include <string>
#include <string_view>

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
  void Load();

  std::string executable_;
  std::string cacheFile_;
  std::function<bool(const char* node)> nodeExists_;
  bool loaded_ = false;
  std::set<std::string, std::less<>> encoders_;
};

}  // namespace orvo::transcoder
