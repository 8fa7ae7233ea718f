// What is known of a Smooth Streaming rendition before it exists: sizes, rates and parameter sets.
#pragma once

#include <string>

namespace LibOrvoQMX {

// Pictures are made in one of these shapes, the nearest to the film's.
inline constexpr int kAspectClasses = 3;  // 1.33, 1.77, 2.35
int AspectClassOf(double ratio);

struct SmoothSize {
  const char* width;
  const char* height;
};
// Null for a requested height that no profile has.
const SmoothSize* FindSmoothSize(const std::string& requestedHeight, double ratio);

struct SmoothProfile {
  const char* key;
  const char* requestedHeight;
  const char* videoBitrate;  // bit/s
  const char* audioBitrate;
};
inline constexpr char kSmoothSamplingRate[] = "48000";
// Null for no such profile of that encoder.
const SmoothProfile* FindSmoothProfile(bool hardware, const std::string& key);

struct SmoothCodecData {
  const char* size;  // "640x480"
  const char* data;  // H.264 parameter sets in Annex B form, in hexadecimal
};
// What that encoder's stream of this size begins with; null for a size that it does not make.
const char* FindSmoothCodecData(bool hardware, const std::string& size);

}  // namespace LibOrvoQMX
