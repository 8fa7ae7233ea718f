// The processes of an HLS stream under its monitor: the transcoder and, where the GStreamer wrapper
// transcodes, the segmenter behind it. A process is the monitor of one stream at most.
#pragma once

#include <functional>
#include <string>

#include "platform/export.h"
#include "state/stream_directory.h"
#include "stream/hls/hls_segments.h"

namespace LibOrvoQMX {

struct HlsPrograms {
  // Each makes a child the program, and returns only on failure. `output` is the number of the
  // pipe's end that the transcoder writes into, -1 without a segmenter; `input` is the other end's.
  std::function<void(int output)> becomeTranscoder;
  std::function<void(int input)> becomeSegmenter;  // nothing where there is no segmenter
  std::function<bool()> isAbandoned;               // asked now and then
  bool isRegistered = true;                        // the transcoder is in the register
};

// Makes this process the monitor of the stream from that segment on. False when a request newer
// than the sequence `own` came first, and when it cannot be recorded.
ORVO_API bool BecomeMonitor(const StreamDirectory& directory, const Segment& segment,
                            const std::string& own);

// Before a monitor begins.
void ResetHlsPipeline();

// Runs the programs until the transcoder ends, a signal comes or the client stays away.
void RunHlsPipeline(const HlsPrograms& programs);

// Stops what runs: SIGINT, and SIGKILL for a transcoder that is still there a second later.
void StopHlsPipeline(bool isRegistered);

// The monitor is to end.
void OnHlsStopSignal(int signal);

}  // namespace LibOrvoQMX
