// What this machine's FFmpeg was built with.
//
// FFmpeg itself is asked, once: its answer is kept in a small file that is good for as long as the
// executable's size and modification time stay the same.
#pragma once

#include <set>
#include <string>
#include <string_view>

namespace orvo::transcoder {

class FfmpegListing {
 public:
  // `executable`: the FFmpeg to ask. `option`: the question, "-encoders" or "-filters".
  // `cacheFile`: where its answer is kept. Nothing is read or run before the first question.
  FfmpegListing(std::string executable, std::string option, std::string cacheFile);

  // True when the answer has a line for this name. An FFmpeg that gives no answer has none.
  bool Has(std::string_view name);

 private:
  void Load();

  std::string executable_;
  std::string option_;
  std::string cacheFile_;
  bool loaded_ = false;
  std::set<std::string, std::less<>> names_;
};

}  // namespace orvo::transcoder
