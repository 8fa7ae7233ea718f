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
// The same if the stream's sequence is still `seen`; "" also if another request was faster.
std::string WriteSequenceAfter(const StreamDirectory& directory, const std::string& seen);
// False when a newer request has written one since. True for a request without one ("").
bool IsLatestSequence(const StreamDirectory& directory, const std::string& own);

// What a request waited for.
struct AwaitedSegment {
  std::string path;     // of the complete segment; "" if there is none
  bool isOver = false;  // nothing is left that could make it
};

class HlsSegments {
 public:
  explicit HlsSegments(StreamDirectory directory);

  bool Has(int number) const;

  // Is the segment there, with nobody writing it any more?
  bool IsComplete(int number) const;

  // Will neither the running transcoder nor one that is on its way come to this segment soon?
  bool NeedsRestart(const Segment& segment) const;

  // Waits, up to 60 seconds, until the segment is complete. Gives up earlier: at once when the
  // request with the sequence `own` has been overtaken or the stream is gone, and soon when nothing
  // is left that could produce the segment. `seen` is the stream's sequence when the request looked
  // first. A request without a sequence of its own goes on waiting when that has changed, but takes
  // no half segment from the transcoder that was stopped.
  AwaitedSegment Await(int number, const std::string& own, const std::string& seen) const;

  // Has the latest restart been lost before it recorded a monitor? A crash of the whole service
  // leaves such a stream, and every request would wait for that restart in vain.
  bool IsRestartLost() const;

 private:
  bool IsPipelineOver() const;
  bool IsWhole(int number, const std::string& seen) const;

  StreamDirectory directory_;
};

}  // namespace LibOrvoQMX
