// Fragments as files: "QualityLevels(RATE)/Fragments(TRACK=TIME)", the time in ticks.
#pragma once

#include <string>
#include <string_view>

#include "transcoder/fragment_cutter.h"

namespace orvo::transcoder {

class FragmentFiles {
 public:
  explicit FragmentFiles(const FragmentPlan& plan);

  // Makes the folders. False, with the reason in the log, when they cannot be there.
  bool Prepare();

  // The file appears with all its content. False, with the reason in the log and nothing left, when
  // it cannot.
  bool Write(Track track, int number, std::string_view content);

 private:
  const std::string& FolderOf(Track track) const;
  std::string PathOf(Track track, int number) const;

  std::string folder_;
  std::string videoFolder_;
  std::string audioFolder_;
  int64_t length_;
};

}  // namespace orvo::transcoder
