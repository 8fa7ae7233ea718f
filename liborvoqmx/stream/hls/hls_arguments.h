// The arguments of the programs of an HLS stream, as functions of the record and a few values.
#pragma once

#include <string>
#include <vector>

#include "metadata/qmxmetadata.h"
#include "stream/hls/hls_segments.h"
#include "stream/pipeline/argument_adjustment.h"

namespace LibOrvoQMX {

struct HlsRun {
  Segment segment;           // the first one
  int seekMilliseconds = 0;  // where the segment begins in the film
  bool isCopied = false;     // the video is copied
  bool cutsAtPlan = false;   // cuts at the key frames of a plan
  std::string audioId;       // the client's choice
  std::string audioFormat;   // the same
  PictureSizeRules size{};
};

// The length of a segment, in seconds.
int SegmentSeconds(bool isCopied);

// The distance in seconds from a segment's nominal start to `seekMilliseconds`, its real start.
double SegmentDelta(int number, int seekMilliseconds, bool isCopied);

// Is that audio track low-complexity AAC? Every client plays it without conversion.
bool IsAacLc(const QMXMetaData& record, const std::string& audioId);

// The transcoder's arguments. Empty if this film cannot be transcoded.
ArgumentList HlsArguments(const QMXMetaData& record, const HlsRun& run);

// The command line of the segmenter that follows the GStreamer wrapper. It reads the stream from
// the descriptor `input` and writes segments, beginning with `number`.
std::vector<std::string> SegmenterCommand(int input, int number, const std::string& pattern);

}  // namespace LibOrvoQMX
