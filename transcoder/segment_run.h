// A run of FFmpeg whose output becomes segments.
#pragma once

#include <string>
#include <vector>

#include "transcoder/film_copy.h"
#include "transcoder/segment_cutter.h"

namespace orvo::transcoder {

// Runs `command`, which writes a transport stream to its standard output, and cuts that into
// segments until it ends. This process stays, so that its process id is the transcoder's; SIGINT
// and SIGTERM end FFmpeg at once, which does not outlive it in any case. Returns FFmpeg's exit
// code, or 128 and the number of the signal that ended it.
//
// The run also ends, with 0, when the last segment of its block is complete, where runs end with
// their blocks (contract/blocks.h).
//
// A segment that is cut short by a signal or by a failure to write loses its file. Where the film
// has nothing to show, the first segment is an empty file, so that nobody waits for it.
int RunSegments(const std::vector<std::string>& command, const SegmentPlan& plan);

// The same with a copy that reports its progress into `progress`. FFmpeg takes over where the copy
// cannot begin.
int RunSegments(const FilmCopy& copy, int progress, const std::vector<std::string>& command,
                const SegmentPlan& plan);

// How the run of a video engine ended.
struct EngineRunEnd {
  int code = 0;            // 0 at the film's end
  bool canGoOn = false;    // the engine has failed, and another encoder could go on
  int unfinishedPart = 0;  // the number of the segment to go on with
};

// The same with a video engine, after whose failure software goes on. A failed run leaves complete
// segments only. An engine that writes nothing for eight seconds while somebody waits has failed.
EngineRunEnd RunEngineSegments(const std::vector<std::string>& command, const SegmentPlan& plan);

}  // namespace orvo::transcoder
