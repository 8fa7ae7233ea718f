// The values of options: each kind is read here, once, and what is not of the kind is refused.
//
// All functions return nothing for a text that is empty, has anything around the value, is not
// finite or is out of range.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace orvo::transcoder {

enum class ValueKind {
  kAny,           // passed on unread
  kTime,          // a place in the film: seconds, or [hours:]minutes:seconds
  kSeconds,       // a place in the film, in seconds
  kMilliseconds,  // the same in whole milliseconds
  kDifference,    // seconds, also below 0
  kLength,        // of a segment or fragment, in seconds
  kNumber,        // of a segment
  kFlag,          // 0 or 1
  kBitRate,       // bits a second; "k" and "M" multiply
  kSampleRate,    // samples a second
  kChannels,
  kSize,    // WIDTHxHEIGHT, or the name of a size
  kAspect,  // of a picture: a number, or WIDTH:HEIGHT
  kSound,   // a SoundWish, by its name
};

// What is made of a film's sound, by the order of the names "stereo", "night" and "original".
enum class SoundWish { kStereo, kNight, kOriginal };

// A value of a kind that is one number: all but kAny and kSize. Times are in seconds, kMilliseconds
// too.
std::optional<double> ParseValue(ValueKind kind, std::string_view text);

struct PictureSize {
  int width = 0;
  int height = 0;
};

std::optional<PictureSize> ParseSize(std::string_view text);

// What is wrong with an option's value, or an empty text.
std::string ValueComplaint(const std::string& option, ValueKind kind, std::string_view text);

}  // namespace orvo::transcoder
