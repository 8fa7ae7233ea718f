// WebVTT as this server writes it: a whole track, or the part of it that a segment shows.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace webapi {

// What segments add to the film's clock, in units of 90 kHz: the multiplexer delays every time
// stamp by 1.4 s, so that decoding can begin before the first picture is due.
inline constexpr int64_t kSegmentClockOffset = 126000;

struct Cue {
  int64_t start = 0;     // milliseconds of the film
  int64_t end = 0;       // likewise; later than `start`
  std::string settings;  // where it stands ("line:0"); "" for the usual place
  std::string text;      // escaped and tagged as WebVTT wants it, no empty line in it
};

// The cues of a WebVTT text, in its order. What is no cue is passed over.
std::vector<Cue> ParseWebVtt(std::string_view text);

// A WebVTT text with the mapping of its clock to the segments'.
std::string WriteWebVtt(const std::vector<Cue>& cues);

// The cues of which something is to be seen from `start` until before `end`, whole.
std::vector<Cue> Slice(std::vector<Cue> cues, int64_t start, int64_t end);

// Puts cues into the order of their time. Cues without a duration or a text, and those that say the
// same at the same time again, go.
void Tidy(std::vector<Cue>& cues);

// Reads "1:02:03,456" (hours may be missing; a comma, a point or a colon before the fraction of any
// length) off the front of `text`. -1, and `text` as it was, when there is no such time.
int64_t TakeTime(std::string_view& text);

// Reads "time --> time" off the front of `text`. False when there is no such thing.
bool TakeTiming(std::string_view& text, Cue& cue);

// Takes the first line off `text`, without its line end (LF, CR LF or CR).
std::string_view TakeLine(std::string_view& text);

void SkipBlanks(std::string_view& text);

}  // namespace webapi
