// What libavformat does for fragments: it takes FFmpeg's stream apart and puts samples into boxes.
//
// The libraries are loaded on the first use, so that a run of another kind does not wait for them.
#pragma once

#include <cstddef>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "transcoder/fragment_cutter.h"

namespace orvo::transcoder {

struct AvFunctions;
class FormatReader;  // FFmpeg's stream

class FragmentFormat {
 public:
  // As read(2): the bytes that were read, 0 at the end and below 0 when the run is to end.
  using Source = std::function<int(unsigned char* buffer, int size)>;

  struct Frame {
    Track track;
    Sample sample;
  };

  explicit FragmentFormat(Source source);
  ~FragmentFormat();
  FragmentFormat(const FragmentFormat&) = delete;
  FragmentFormat& operator=(const FragmentFormat&) = delete;

  // Reads up to the first frame. False when there is none: the libraries are missing, which is in
  // the log, or the stream is empty.
  bool Open();
  bool HasSound() const;

  // Nothing at the end of the stream.
  std::optional<Frame> Next();

  // The fragment of these samples, for an opened stream: one "moof" and one "mdat". Empty when it
  // cannot be made.
  std::string Box(Track track, int number, const std::vector<Sample>& samples) const;

 private:
  const AvFunctions* libraries_ = nullptr;
  Source source_;
  std::unique_ptr<FormatReader> reader_;
};

}  // namespace orvo::transcoder
