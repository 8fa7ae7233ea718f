// Streams that were opened because a viewer may ask for them next.
//
// A stream is warmed until the first request for one of its segments. Its runs make the first
// segments and end after ten seconds; the segments stay. A viewer who needs a place gets theirs.
#pragma once

#include <string>

#include "platform/export.h"

namespace LibOrvoQMX {

// Marks an opened stream as warmed. Returns false if the mark cannot be written.
ORVO_API bool MarkCmafWarmed(const std::string& streamId);

ORVO_API bool IsCmafWarmed(const std::string& streamId);

// A viewer asks for the stream. Returns whether it was warmed until now.
ORVO_API bool EndCmafWarming(const std::string& streamId);

// Ends the runs of encoded pictures of all warmed streams, and waits for their ends. Returns
// whether there were any.
ORVO_API bool MakeWarmedCmafGiveWay();

}  // namespace LibOrvoQMX
