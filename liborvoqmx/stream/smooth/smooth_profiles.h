// Tables that predict a Smooth Streaming rendition: sizes, bit rates and parameter sets.
#pragma once

#include <string>

namespace LibOrvoQMX {

// The picture has one of these shapes, the nearest to the film's.
inline constexpr int kAspectClasses = 3;  // 1.33, 1.77, 2.35
int AspectClassOf(double ratio);

struct SmoothSize {
  const char* width;
  const char* height;
};
// Returns null if no profile has the requested height.
const SmoothSize* FindSmoothSize(const std::string& requestedHeight, double ratio);

struct SmoothProfile {
  const char* key;
  const char* requestedHeight;
  const char* videoBitrate;  // bit/s
  const char* audioBitrate;
};
inline constexpr char kSmoothSamplingRate[] = "48000";
// Returns null if that encoder has no such profile.
const SmoothProfile* FindSmoothProfile(bool hardware, const std::string& key);

struct SmoothCodecData {
  const char* size;  // "640x480"
  const char* data;  // H.264 parameter sets in Annex B form, in hexadecimal
};
// The parameter sets at the beginning of that encoder's stream; null for a size that it does not
// produce.
const char* FindSmoothCodecData(bool hardware, const std::string& size);

}  // namespace LibOrvoQMX
