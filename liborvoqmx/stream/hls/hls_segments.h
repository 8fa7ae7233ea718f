// The segments of an HLS stream: when one is complete, and when the transcoder must restart for it.
#pragma once

#include <functional>
#include <string>

#include "platform/export.h"
#include "state/stream_directory.h"

namespace LibOrvoQMX {

// A segment as a request names it.
struct ORVO_API Segment {
  // Makes a segment from its number, or from a decimal text, which is read like strtol does.
  explicit Segment(int segmentNumber);
  explicit Segment(const std::string& segmentText);

  int number;            // below the largest int, so the next segment has a number too
  std::string text;      // the form for the transcoder and "seek_time"
  bool isNumber = true;  // the text begins with a number in that range
};

// Writes the sequence of the stream's latest restart request, and returns it: seconds, ".",
// nanoseconds of the monotonic clock. Sequences are compared as texts.
ORVO_API std::string WriteSequence(const StreamDirectory& directory);  // "" on failure
// The same if the stream's sequence is still `seen`. Returns "" also if another request was faster.
std::string WriteSequenceAfter(const StreamDirectory& directory, const std::string& seen);
// Returns false if a newer request has written its sequence. Returns true for an empty `own`.
bool IsLatestSequence(const StreamDirectory& directory, const std::string& own);

// The result of a wait for a segment.
struct AwaitedSegment {
  std::string path;         // the complete segment; "" if there is none
  bool isOver = false;      // no process is left that could make it
  bool isReplaced = false;  // a newer request has ended the wait
};

class ORVO_API HlsSegments {
 public:
  explicit HlsSegments(StreamDirectory directory);

  bool Has(int number) const;

  // Does the segment exist, and has its writer finished it?
  bool IsComplete(int number) const;

  // Does the segment need a restart? It does if neither the running transcoder nor one that is
  // starting will reach it soon.
  bool NeedsRestart(const Segment& segment) const;
  // Does the segment need a restart although the viewer has asked for another place since? Requests
  // may run in another order than they came in, and a late one must not take the transcoder from
  // the newest one.
  bool IsLeft(const Segment& segment) const;
  // Has the latest restart begun at a place that does not lead to this segment? False while a
  // request writes the place.
  bool IsElsewhere(int number) const;

  // Waits up to 60 seconds until the segment is complete. Gives up at once if `isReplaced` or the
  // stream is gone, and soon if no process is left that could produce the segment. `seen` is the
  // stream's sequence at the request's first look. If the sequence has changed since, the request
  // accepts no half segment from the stopped transcoder.
  AwaitedSegment Await(int number, const std::function<bool()>& isReplaced,
                       const std::string& seen) const;

  // Does no transcoder run or start, and has a viewer got each segment that is here? A new run from
  // another place, which removes the segments, then harms nobody.
  bool IsFinished() const;

  // Did the latest restart die before it recorded a monitor? A crash of the whole service can leave
  // such a stream, and every request would wait for that restart in vain.
  bool IsRestartLost() const;

 private:
  bool IsPipelineOver() const;
  bool IsWhole(int number, const std::string& seen) const;

  StreamDirectory directory_;
};

}  // namespace LibOrvoQMX
