// Proves video engines by encoding with them.
#pragma once

#include "transcoder/engines.h"

namespace orvo::transcoder {

// Encodes a few pictures of each size with each engine, with the command line and the filters that
// films get, and compares the result with the pictures. An engine with several devices is proved on
// each; the best one counts. Runs FFmpeg confined, some seconds for each engine that is there; one
// that hangs is given up after ten seconds. Changes no file.
EngineRecord ProveEngines();

// As ProveEngines(), and keeps the result for EngineRecord::Load().
EngineRecord ProveAndSaveEngines();

}  // namespace orvo::transcoder
