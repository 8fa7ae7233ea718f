// The command line of a run that makes the segments of one CMAF rendition:
//
//   ffmpeg -cmaf TREATMENT [OPTIONS] -i FILM FOLDER
//
// Options: "-number N" (the first segment), "-track N" (as FFmpeg counts them), "-s WIDTHxHEIGHT",
// "-vb RATE" (bit/s, of pictures), "-aac 1" (of sound that is copied: it is AAC), "-head 1" (make
// the header and end), "-from SECONDS" (of packets).
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "transcoder/option_values.h"

namespace orvo::transcoder {

inline constexpr char kCmafOption[] = "-cmaf";

enum class Treatment {
  kPlan,      // no segments: writes the plan of the film into FOLDER
  kPackets,   // no segments: writes the packets of the track to standard output
  kPictures,  // copied
  kSound,     // copied
  kH264,
  kStereo,
  kNight,
};

struct CmafRequest {
  Treatment treatment = Treatment::kPlan;
  int number = 0;
  int track = 0;
  double from = 0;  // seconds, for kPackets
  PictureSize size;
  long rate = 0;
  bool isAac = false;
  bool isHeaderOnly = false;
  std::string film;
  std::string folder;

  bool IsCopy() const {
    return treatment == Treatment::kPictures || treatment == Treatment::kSound;
  }
  bool IsSound() const {
    return treatment == Treatment::kSound || treatment == Treatment::kStereo ||
           treatment == Treatment::kNight;
  }
};

// Reads the arguments, the first of which is kCmafOption. Returns nothing if they have another
// form.
std::optional<CmafRequest> ParseCmafRequest(const std::vector<std::string>& arguments);

}  // namespace orvo::transcoder
