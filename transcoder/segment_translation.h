// How a film is entered, and what FFmpeg is told, so that its output can be cut into segments.
#pragma once

#include <string>
#include <vector>

#include "transcoder/segment_cutter.h"

namespace orvo::transcoder {

// What a command line says about the segments that it wants.
struct SegmentRequest {
  bool isWanted = false;
  std::string start;   // milliseconds into the film
  std::string length;  // seconds
  std::string number;
  std::string cutsAnywhere;  // "1" when pictures that are no key frames may start a segment
  std::string soundRate;     // samples a second
  std::string soundFilters;
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

// A chain of picture filters with the lead cut off at its end.
std::string WithoutLead(const std::string& filters, const SegmentEntry& entry);

// The bit stream filters of copied pictures, with what makes every entry point decodable.
std::string Decodable(const std::string& filters, const SegmentRequest& request);

// What stands behind everything else, and the output.
std::vector<std::string> SegmentOptions(const SegmentRequest& request, const SegmentEntry& entry);

}  // namespace orvo::transcoder
