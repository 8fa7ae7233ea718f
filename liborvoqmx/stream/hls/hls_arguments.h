// The arguments of an HLS stream's programs, as functions of the record and a few values.
#pragma once

#include <string>
#include <vector>

#include "metadata/qmxmetadata.h"
#include "stream/hls/hls_segments.h"
#include "stream/pipeline/argument_adjustment.h"

namespace LibOrvoQMX {

struct HlsRun {
  Segment segment;           // the first one
  int seekMilliseconds = 0;  // where it begins
  bool isCopied = false;     // the video is copied
  bool cutsAtPlan = false;   // at the key frames of a plan
  std::string audioId;       // what the client asked for
  std::string audioFormat;   // the same
  PictureSizeRules size{};
};

// The length of a segment, in seconds.
int SegmentSeconds(bool isCopied);

// How far a segment that begins at `seekMilliseconds` is behind its nominal place, in seconds.
double SegmentDelta(int number, int seekMilliseconds, bool isCopied);

// Is that audio track low-complexity AAC, which every client plays as it is?
bool IsAacLc(const QMXMetaData& record, const std::string& audioId);

// The transcoder's arguments; empty when this film cannot be transcoded.
ArgumentList HlsArguments(const QMXMetaData& record, const HlsRun& run);

// The command line of the segmenter behind the GStreamer wrapper, which cuts what comes from the
// descriptor `input`, from the segment `number` on.
std::vector<std::string> SegmenterCommand(int input, int number, const std::string& pattern);

}  // namespace LibOrvoQMX
