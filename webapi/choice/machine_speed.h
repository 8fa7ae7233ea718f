// How fast this machine converts pictures.
//
// The costs of decoding and encoding are measured once (speed_measurement.h), in processor seconds,
// because these do not depend on what else runs. Streams correct them by what they really cost. The
// file of all this belongs to the machine as it is: other cores, another FFmpeg or another driver
// make it invalid. docs/state-files.md describes it.
#pragma once

#include <json/value.h>

#include <string>

#include "metadata/video_metadata.h"

namespace webapi {

// What a transcoder does to a film's pictures.
struct Conversion {
  std::string codec;  // FFmpeg's name of the film's codec
  unsigned width = 0;
  unsigned height = 0;
  double rate = 0;  // pictures a second
  bool isHighRange = false;
  std::string encoder;  // with its preset: "libx264 superfast"
  unsigned outWidth = 0;
  unsigned outHeight = 0;
  unsigned threads = 0;  // of the encoder; 0 for as many as there are cores
};

// A conversion of the film's pictures whose result is still to be filled in.
Conversion ConversionFrom(const LibOrvoQMX::VideoMetaData& film);

// Is this the name of the file, in the cache's folder?
bool IsMachineSpeed(const std::string& name);

class MachineSpeed {
 public:
  // What is stored for this machine; unknown if nothing is.
  static MachineSpeed Load();

  // Has the machine been measured?
  bool IsKnown() const { return costs_.isObject() && !costs_.empty(); }

  // The costs of these kinds of work: "decode h264 640x360", "encode libx264 superfast 1280x720" or
  // "tone 1280x720" with the processor seconds of one picture.
  void SetCosts(const Json::Value& costs) { costs_ = costs; }
  const Json::Value& Costs() const { return costs_; }

  // How many seconds of the film the whole machine converts in one second; 0 if that is not known.
  double Of(const Conversion& conversion) const;

  // Learns that a second of the film really cost so many processor seconds. Returns false if that
  // tells nothing new.
  bool Learn(const Conversion& conversion, double processorSeconds);

  // Writes the file. Returns false on failure.
  bool Save() const;

 private:
  // Processor seconds for one second of film; 0 if unknown.
  double Predicted(const Conversion& conversion) const;
  double CostOf(const std::string& work, unsigned width, unsigned height) const;
  double Correction(const Conversion& conversion) const;

  Json::Value costs_{Json::objectValue};
  Json::Value corrections_{Json::objectValue};
};

}  // namespace webapi
