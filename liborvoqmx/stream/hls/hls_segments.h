// The segments of an HLS stream: when a request may have one, and when the transcoder has to start
// anew for it.
#pragma once

#include <string>

#include "platform/export.h"
#include "state/stream_directory.h"

namespace LibOrvoQMX {

// A segment as a request names it.
struct ORVO_API Segment {
  // From its number; from a decimal text, which is read as strtol reads it.
  explicit Segment(int segmentNumber);
  explicit Segment(const std::string& segmentText);

  int number;            // below the largest int, so that its successor has a number too
  std::string text;      // what the transcoder and "seek_time" get
  bool isNumber = true;  // the text begins with a number of that range
};

// When the latest restart was asked for, as the request knows that asked for it: seconds, ".",
// nanoseconds of the monotonic clock. Compared as texts.
ORVO_API std::string WriteSequence(const StreamDirectory& directory);  // "" on failure
// False when a newer request has written one since. True for a request without one ("").
bool IsLatestSequence(const StreamDirectory& directory, const std::string& own);

class HlsSegments {
 public:
  explicit HlsSegments(StreamDirectory directory);

  bool Has(int number) const;

  // Is the segment there, with nobody writing it any more?
  bool IsComplete(int number) const;

  // Will neither the running transcoder nor one that is on its way come to this segment soon?
  bool NeedsRestart(const Segment& segment) const;

  // Waits, up to 60 seconds, until the segment is complete, and answers its path. "" when it is
  // not: at once when the request with the sequence `own` has been overtaken or the stream is gone,
  // and soon when nothing is left that could produce the segment. `seen` is the stream's sequence
  // when the request looked first. A request without a sequence of its own goes on waiting when
  // that has changed, but takes no half segment from the transcoder that was stopped.
  std::string Await(int number, const std::string& own, const std::string& seen) const;

 private:
  bool IsPipelineOver() const;
  bool IsWhole(int number, const std::string& seen) const;

  StreamDirectory directory_;
};

}  // namespace LibOrvoQMX
