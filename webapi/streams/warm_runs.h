// Runs that begin before a viewer gets to their block, so that several boxes encode for one viewer.
//
// The opening of a stream, and a viewer's request for a segment, make their box ask the balancer
// for the first segments of the next blocks, with "warm=1". The boxes that get these requests
// answer at once, and begin when nobody waits for what they make now.
#pragma once

#include <functional>
#include <string>

#include "state/stream_directory.h"
#include "webapi/access/ticket.h"
#include "webapi/http/answer.h"
#include "webapi/http/request.h"

namespace webapi {

// Is it a request of another box, and not of a viewer?
bool IsWarmRequest(const Request& request);

// Asks for the first segments of the blocks after that of segment `number`, one for each other box.
// Does so once for a block; `folder` remembers it. `exists` tells whether the stream has a segment,
// and `addressOf` the path and query of its address.
void WarmNextBlocks(const LibOrvoQMX::StreamDirectory& folder, int number,
                    const std::function<bool(int)>& exists,
                    const std::function<std::string(int)>& addressOf);

// Asks for segment `number`, with which a viewer will begin, and for the first segments of the
// `boxes` - 1 blocks after its block.
void WarmFirstBlocks(int number, int boxes, const std::function<bool(int)>& exists,
                     const std::function<std::string(int)>& addressOf);

// A run that may have to wait.
struct WarmRun {
  LibOrvoQMX::StreamDirectory folder;  // of its segments and its monitor
  int number;                          // its first segment
  bool needsPlace;                     // in the register of transcoders
  bool isHardware;                     // the kind of that place
  std::function<bool()> start;         // returns false as long as a viewer's run goes on
};

// Starts the run in a process of its own, and answers that it will. Gives up after 150 seconds, or
// when a newer request for the same folder comes.
Answer StartWarm(const WarmRun& run);

// The same where the stream itself has to be made first: calls `make` in a process of its own, and
// once more when a place is free if it returns false.
Answer StartWarmLater(const std::function<bool()>& make);

}  // namespace webapi
