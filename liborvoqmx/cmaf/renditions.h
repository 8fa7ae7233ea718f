// The renditions of a film in a CMAF presentation: which ones a client gets, and how players name
// them.
#pragma once

#include <string>
#include <vector>

#include "metadata/video_metadata.h"
#include "platform/export.h"

namespace LibOrvoQMX {

// What a client can play and wants.
struct CmafWishes {
  std::string codecs;        // names by RFC 6381, full or bare, with commas; "" for "avc1,mp4a"
  bool showsHdr = false;     // shows PQ and HLG
  unsigned maxHeight = 0;    // lines; 0 for no bound
  unsigned maxBitrate = 0;   // kbit/s; 0 for no bound
  unsigned maxEncoded = 0;   // lines that this machine encodes in time; 0 for no bound
  std::string audioId;       // the default track; "" for the film's own
  std::string copying;       // kCmafCopied and so on (contract/cmaf.h)
  std::string dynamicRange;  // of the film: kCmafPq and so on
};

struct CmafRendition {
  std::string name;        // in addresses: letters, digits and "-"
  std::string treatment;   // the transcoder's word for it: "pictures", "sound", "h264" and so on
  int track = 0;           // FFmpeg's number
  std::string codec;       // by RFC 6381
  unsigned bandwidth = 0;  // bit/s
  bool isPicture = false;
  unsigned width = 0;
  unsigned height = 0;
  std::string label;  // of sound
  std::string language;
  unsigned channels = 0;
  bool isDefault = false;

  bool IsEncodedPicture() const { return isPicture && treatment != "pictures"; }
};

// Copied pictures come first, then the ladder from the largest picture on, then the sound: for each
// track the copy, stereo and night. If no row of the ladder keeps the bounds, it has the smallest
// one. The list depends on nothing but the arguments.
ORVO_API std::vector<CmafRendition> ListCmafRenditions(const VideoMetaData& film,
                                                       const CmafWishes& wishes);

// Why the pictures are not copied, as one sentence; "" if they are.
ORVO_API std::string WhyNotCopied(const VideoMetaData& film, const CmafWishes& wishes);

// The arguments that tell the transcoder which rendition to make.
ORVO_API std::vector<std::string> CmafArguments(const CmafRendition& rendition);

}  // namespace LibOrvoQMX
