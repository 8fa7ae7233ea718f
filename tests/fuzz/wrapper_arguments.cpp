// The command line of the GStreamer wrapper, one argument a line.
#include <algorithm>
#include <cmath>

#include "fuzz/fuzz.h"
#include "gst/arguments.h"

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string text = fuzz::TextOf(data, size);
  const auto count = std::count(text.begin(), text.end(), '\n');
  const auto reading =
      orvo::gst::ReadArguments(fuzz::Parts(text, '\n', static_cast<size_t>(count) + 1));
  const orvo::gst::Request& request = reading.request;
  if (!reading.error.empty()) {
    fuzz::Demand(reading.error.size() <= size + 200);
    return 0;
  }
  constexpr int kLargest = 16384;
  fuzz::Demand(!request.film.empty() && request.output >= 0 && request.soundTrack >= 0);
  fuzz::Demand(request.start >= 0 && std::isfinite(request.start));
  fuzz::Demand(request.pictureBits > 0 && request.soundBits > 0);
  fuzz::Demand(request.width >= 0 && request.width <= kLargest && request.height >= 0 &&
               request.height <= kLargest);
  fuzz::Demand(request.frameRate == 0 || (request.frameRate >= 1 && request.frameRate <= 240));
  return 0;
}
