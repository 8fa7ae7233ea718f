// Fragments as files: "QualityLevels(RATE)/Fragments(TRACK=TIME)", the time in ticks.
//
// Readers take a fragment for complete when a name of a later one is there. A fragment is complete
// here as soon as it appears, so an empty file "Fragments(TRACK=TIME).next" with the time of the
// next one appears with it. Otherwise a viewer would wait until the next one is encoded, too.
#pragma once

#include <array>
#include <string>
#include <string_view>

#include "transcoder/fragment_cutter.h"

namespace orvo::transcoder {

class FragmentFiles {
 public:
  explicit FragmentFiles(const FragmentPlan& plan);
  ~FragmentFiles();

  FragmentFiles(const FragmentFiles&) = delete;
  FragmentFiles& operator=(const FragmentFiles&) = delete;

  // Makes the folders. False, with the reason in the log, when they cannot be there.
  bool Prepare();

  // The file appears with all its content. False, with the reason in the log and nothing left, when
  // it cannot.
  bool Write(Track track, int number, std::string_view content);

 private:
  const std::string& FolderOf(Track track) const;
  std::string PathOf(Track track, int number) const;
  void Announce(Track track, int number);

  std::string folder_;
  std::string videoFolder_;
  std::string audioFolder_;
  int64_t length_;
  std::array<std::string, 2> announced_;  // for each track; "" before its first fragment
};

}  // namespace orvo::transcoder
