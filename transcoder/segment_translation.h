// How a film is entered, and what FFmpeg is told, so that its output can be cut into segments.
#pragma once

#include <string>
#include <vector>

#include "transcoder/fragment_cutter.h"
#include "transcoder/segment_cutter.h"

namespace orvo::transcoder {

// What a command line says about the segments, or the fragments, that it wants.
struct SegmentRequest {
  bool isWanted = false;
  bool areFragments = false;
  std::string start;   // milliseconds into the film
  std::string length;  // seconds
  std::string number;
  std::string cutsAnywhere;  // "1" when pictures that are no key frames may start a segment
  std::string soundRate;     // samples a second
  std::string soundFilters;
  std::string pictureBits;  // a second, as given: what fragments are called by
  std::string soundBits;
  bool copiesPictures = false;
  bool copiesSound = false;
  bool lacksIndex = false;  // a seek lands between key frames
  bool clockJumps = false;  // a seek lands anywhere
  bool isSeekable = true;
  bool takesFineClock =
      false;  // the encoder shares out its bits without looking at the clock's tick
};

// Where a run enters the film.
struct SegmentEntry {
  double seek = 0;       // seconds
  double lead = 0;       // from there to the first segment, seconds
  long firstSample = 0;  // from there to the first sample that is encoded
};

SegmentEntry EnterFilm(const SegmentRequest& request);
SegmentPlan PlanSegments(const SegmentRequest& request, const SegmentEntry& entry,
                         const std::string& pattern);

// Fragments start at multiples of their length: the first one is the first that starts at or after
// the start that was asked for, so that none is ever cut short at its beginning.
std::string FragmentStart(const std::string& start, const std::string& length);

// The plan for these fragments. A rate that is no number is an empty text in it.
FragmentPlan PlanFragments(const SegmentRequest& request, const std::string& folder);

// A chain of picture filters with the size at its end, as the manifest of fragments states it:
// exactly this many square pixels. Pictures of another shape get bars; a shape that is nearly the
// same does not.
std::string Fitted(const std::string& filters, const std::string& size);

// A chain of picture filters with the lead cut off at its end.
std::string WithoutLead(const std::string& filters, const SegmentEntry& entry);

// The bit stream filters of copied pictures, with what makes every entry point decodable.
std::string Decodable(const std::string& filters, const SegmentRequest& request);

// What stands behind everything else, and the output.
std::vector<std::string> SegmentOptions(const SegmentRequest& request, const SegmentEntry& entry);

}  // namespace orvo::transcoder
