// Runs that begin before a viewer gets to their block, so that several boxes encode for one viewer.
//
// A viewer's request for a segment makes its box ask the balancer for the first segments of the
// next blocks, with "warm=1". The boxes that get these requests answer at once, and begin when
// nobody waits for what they make now.
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

// The same where the stream itself cannot be made without a place: calls `make` once one is free.
Answer StartWarmLater(const std::function<void()>& make);

}  // namespace webapi
