// Reads and writes WebVTT: a whole track, or the part for one segment.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace webapi {

// The offset from the film's clock to the segments' clock, in units of 90 kHz. The multiplexer
// delays every time stamp by 1.4 s, so that decoding can begin before the first picture is due.
inline constexpr int64_t kSegmentClockOffset = 126000;

struct Cue {
  int64_t start = 0;     // milliseconds of the film
  int64_t end = 0;       // likewise; later than `start`
  std::string settings;  // its position ("line:0"); "" for the usual place
  std::string text;      // with the escapes and tags of WebVTT, without empty lines
};

// A reader stops after this many cues. A film of five hours with a new text for every second frame
// has fewer.
inline constexpr size_t kMostCues = 250'000;

// The cues of a WebVTT text, in its order. Skips everything that is not a cue.
std::vector<Cue> ParseWebVtt(std::string_view text);

// Writes a WebVTT text, with the mapping from its clock to the segments' clock.
std::string WriteWebVtt(const std::vector<Cue>& cues);

// The cues that are visible between `start` and `end`, with their full times. A cue that begins at
// `end` is not included.
std::vector<Cue> Slice(std::vector<Cue> cues, int64_t start, int64_t end);

// Sorts cues by time. Removes cues without a duration or a text, and repetitions of the same text
// at the same time.
void Tidy(std::vector<Cue>& cues);

// Removes a time such as "1:02:03,456" from the front of `text` and returns it in milliseconds.
// Hours may be missing; a comma, a point or a colon may precede the fraction, which may have any
// length. Returns -1 and leaves `text` unchanged if there is no such time.
int64_t TakeTime(std::string_view& text);

// Reads and removes "time --> time" from the front of `text`. Returns false if it is not there.
bool TakeTiming(std::string_view& text, Cue& cue);

// Removes the first line from `text` and returns it without its line end (LF, CR LF or CR).
std::string_view TakeLine(std::string_view& text);

void SkipBlanks(std::string_view& text);

}  // namespace webapi
