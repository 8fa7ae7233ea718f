// The packets between the key frame where a decoder enters a film and the place that was sought.
#pragma once

#include <cstdint>

extern "C" {
#include <libavutil/avutil.h>
#include <libavutil/rational.h>
}

namespace orvo::transcoder {

// What is decoded there is thrown away, so pictures that no other picture refers to need not be
// decoded. Decoders learn from the pictures right before the place in which order they show them,
// so these are left as they are.
class LeadIn {
 public:
  // The place in AV_TIME_BASE units.
  void Seek(int64_t place) { place_ = place; }

  // Does a packet belong to it, so far before the place that it may be left out? Its times are in
  // units of `base`; AV_NOPTS_VALUE is never before.
  bool Has(int64_t time, int64_t duration, AVRational base) const;

 private:
  int64_t place_ = AV_NOPTS_VALUE;
};

}  // namespace orvo::transcoder
