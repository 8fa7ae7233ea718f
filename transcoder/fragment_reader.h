// Reads the fragmented MP4 stream of one track that FFmpeg writes, as it comes.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

#include "transcoder/cmaf_boxes.h"

namespace orvo::transcoder {

class FragmentReader {
 public:
  // `take` gets each sample, with the times of the stream.
  explicit FragmentReader(std::function<void(CmafSample)> take) : take_(std::move(take)) {}

  // More bytes of the stream. Returns false when they are no such stream.
  bool Add(std::string_view bytes);

  // The track, as soon as its header has come.
  const std::optional<CmafTrack>& Track() const { return track_; }

 private:
  bool TakeBox(std::string_view type, std::string_view content);
  bool TakeHeader(std::string_view movie);
  bool TakeFragment(std::string_view fragment);
  bool TakeData(std::string_view data);

  std::function<void(CmafSample)> take_;
  std::optional<CmafTrack> track_;
  std::string pending_;
  std::vector<CmafSample> announced_;  // by the fragment whose data comes next
  std::vector<uint32_t> sizes_;
};

}  // namespace orvo::transcoder
