// The processes that the monitor of an HLS stream runs: the transcoder and, after the GStreamer
// wrapper, the segmenter. A process is the monitor of at most one stream.
#pragma once

#include <functional>
#include <string>

#include "platform/export.h"
#include "state/stream_directory.h"
#include "stream/hls/hls_segments.h"

namespace LibOrvoQMX {

struct HlsPrograms {
  // Each function replaces the child's image by the program and returns only on failure. `output`
  // is the descriptor that the transcoder writes into, or -1 without a segmenter. `input` is the
  // other end of that pipe.
  std::function<void(int output)> becomeTranscoder;
  std::function<void(int input)> becomeSegmenter;  // empty if there is no segmenter
  std::function<bool()> isAbandoned;               // called from time to time
  bool isRegistered = true;                        // the transcoder is in the register
};

// Makes this process the monitor of the stream, beginning with that segment. Returns false if a
// request newer than the sequence `own` came first, or if the monitor cannot be recorded.
ORVO_API bool BecomeMonitor(const StreamDirectory& directory, const Segment& segment,
                            const std::string& own);

// Resets the state of this process. Call it before a monitor begins.
void ResetHlsPipeline();

// Runs the programs until the transcoder ends, a signal arrives or the client has gone.
void RunHlsPipeline(const HlsPrograms& programs);

// Stops the running programs with SIGINT. Sends SIGKILL to a transcoder that still runs one second
// later.
void StopHlsPipeline(bool isRegistered);

// The signal handler that tells the monitor to end.
void OnHlsStopSignal(int signal);

}  // namespace LibOrvoQMX
