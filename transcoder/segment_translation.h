// How a film is entered, and what FFmpeg is told, so that its output can be cut into segments.
#pragma once

#include <string>
#include <vector>

#include "transcoder/fragment_cutter.h"
#include "transcoder/lengths.h"
#include "transcoder/segment_cutter.h"

namespace orvo::transcoder {

// What a command line says about the segments, or the fragments, that it wants.
struct SegmentRequest {
  bool isWanted = false;
  bool areFragments = false;
  bool isStream = false;         // no parts are wanted, but packets that another run can continue
  double start = 0;              // seconds into the film
  double length = kUsualLength;  // seconds
  int number = 0;
  bool cutsAnywhere = false;  // pictures that are no key frames may start a segment
  long soundRate = 48000;     // samples a second
  std::string soundFilters;
  long pictureBits = 0;  // a second: what fragments are called by; 0 when not given
  long soundBits = 0;
  bool copiesPictures = false;
  bool copiesSound = false;
  bool isSilent = false;    // only the pictures are wanted
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
// the start that was asked for, so that none is ever cut short at its beginning. All in seconds.
double FragmentStart(double start, double length);

// The plan for these fragments. A rate that is not known is an empty text in it.
FragmentPlan PlanFragments(const SegmentRequest& request, const std::string& folder);

// A chain of picture filters with the size at its end, as the manifest of fragments states it:
// exactly this many square pixels. Pictures of another shape get bars; a shape that is nearly the
// same does not.
std::string Fitted(const std::string& filters, const std::string& size);

// A chain of picture filters at whose start pixels are square where the film does not say
// otherwise.
std::string WithPixelShape(const std::string& filters);

// A chain of picture filters at whose end the pictures that start a segment are marked for the
// encoder, as SegmentOptions() tells it. Nothing is added for an encoder that cannot see marks.
std::string Marked(const std::string& filters, const SegmentRequest& request,
                   const SegmentEntry& entry);

// A chain of picture filters with the lead cut off at its end.
std::string WithoutLead(const std::string& filters, const SegmentEntry& entry);

// The bit stream filters of copied pictures, with what makes every entry point decodable.
std::string Decodable(const std::string& filters, const SegmentRequest& request);

// What stands behind everything else, and the output.
std::vector<std::string> SegmentOptions(const SegmentRequest& request, const SegmentEntry& entry);

}  // namespace orvo::transcoder
